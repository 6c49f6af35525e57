#include <gtest/gtest.h>

#include "foundation/documents/HtmlReader.h"

namespace qva {
namespace {

AttributedString read(std::string_view html) {
  auto text = HtmlReader::read(html);
  EXPECT_TRUE(text) << html;
  return text.value_or(AttributedString());
}

const TextAttributes& at(const AttributedString& text, std::u16string_view what) {
  const std::size_t index = text.text().find(what);
  EXPECT_NE(index, std::u16string::npos);
  return text.attributesAt(index == std::u16string::npos ? 0 : index);
}

TEST(HtmlReaderTest, BlocksBecomeParagraphsAndBreaksLineBreaks) {
  const AttributedString text = read(
      "<!DOCTYPE html><html><head><title>Not shown</title><style>p{color:red}</style>"
      "<script>var hidden = 1;</script></head><body>\n"
      "  <h1>Head  line</h1>\n<p>First\n   paragraph<br>second line</p><div>Block<div>nested</div></div>"
      "<ul><li>one</li><li>two</li></ul><ol><li>first</li></ol>tail &amp; more&nbsp;!</body></html>");
  EXPECT_EQ(text.utf8(),
            "Head line\nFirst paragraph\xE2\x80\xA8second "
            "line\nBlock\nnested\n\xE2\x80\xA2\tone\n\xE2\x80\xA2\ttwo\n"
            "1.\tfirst\ntail & more\xC2\xA0!");
}

TEST(HtmlReaderTest, InlineFormattingBecomesAttributes) {
  const AttributedString text = read(
      "<p>plain <b>bold</b> <strong>strong</strong> <i>italic</i> <em>em</em> <u>under</u> <s>struck</s> "
      "x<sup>up</sup> y<sub>down</sub> <font color=\"#00ff00\" size=\"7\" face=\"Courier, "
      "monospace\">font</font> "
      "<font color=red size=\"-1\">small</font> <font color=\"#abc\">short</font></p>"
      "<h2>heading</h2><pre>  keep   spaces\n  here</pre><p align=\"center\">centred</p>");
  EXPECT_EQ(at(text, u"plain").font, (FontDescriptor{"Times", 12}));
  EXPECT_EQ(at(text, u"plain").foregroundColor, (Color{0, 0, 0, 1}));
  EXPECT_TRUE(at(text, u"bold").font.bold);
  EXPECT_TRUE(at(text, u"strong").font.bold);
  EXPECT_TRUE(at(text, u"italic").font.italic);
  EXPECT_TRUE(at(text, u"em").font.italic);
  EXPECT_EQ(at(text, u"under").underlineStyle, 1);
  EXPECT_EQ(at(text, u"struck").strikethroughStyle, 1);
  EXPECT_EQ(at(text, u"up").superscript, 1);
  EXPECT_EQ(at(text, u"down").superscript, -1);
  EXPECT_EQ(at(text, u"font").foregroundColor, (Color{0, 1, 0, 1}));
  EXPECT_EQ(at(text, u"font").font, (FontDescriptor{"Courier", 36}));
  EXPECT_EQ(at(text, u"small").foregroundColor, (Color{1, 0, 0, 1}));
  EXPECT_EQ(at(text, u"small").font.pointSize, 9.75);
  EXPECT_EQ(at(text, u"short").foregroundColor, (Color{0xA / 15.0, 0xB / 15.0, 0xC / 15.0, 1}));
  EXPECT_TRUE(at(text, u"heading").font.bold);
  EXPECT_EQ(at(text, u"heading").font.pointSize, 18);
  EXPECT_NE(text.text().find(u"  keep   spaces\n  here"), std::u16string::npos);
  EXPECT_EQ(at(text, u"keep").font.family, "Courier");
  EXPECT_EQ(at(text, u"centred").paragraphStyle.alignment, TextAlignment::Center);
  EXPECT_EQ(at(text, u"plain").paragraphStyle.alignment, TextAlignment::Natural);
}

TEST(HtmlReaderTest, EncodingsAndBrokenMarkup) {
  // Declared encodings are followed; undeclared text is UTF-8 when it is valid, else Windows Latin 1.
  EXPECT_EQ(read("<html><head><meta charset=\"iso-8859-5\"></head><body>\xB0\xB1</body></html>").utf8(),
            "\xD0\x90\xD0\x91");
  EXPECT_EQ(read("<p>caf\xC3\xA9</p>").utf8(), "caf\xC3\xA9");
  EXPECT_EQ(read("<p>caf\xE9</p>").utf8(), "caf\xC3\xA9");
  EXPECT_EQ(read("<p>unclosed <b>bold <i>and italic").utf8(), "unclosed bold and italic");
  EXPECT_EQ(read("just text, no markup").utf8(), "just text, no markup");
  EXPECT_TRUE(read("").empty());
  EXPECT_TRUE(read(" \n ").empty());

  // Nesting deeper than the parser takes loses the text within, and nothing else.
  std::string deep;
  for (int i = 0; i < 100000; ++i) {
    deep += "<b>";
  }
  deep += "deep";
  const std::string deepText = read(deep + "<p>after</p>").utf8();
  EXPECT_TRUE(deepText.empty() || deepText.find("deep") != std::string::npos) << deepText;
}

}  // namespace
}  // namespace qva
