#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "foundation/rtf/RtfReader.h"

namespace qva {
namespace {

RtfReader::Result read(std::string_view document) {
  return RtfReader::read(document);
}

TEST(RtfReaderTest, ReadsThePlatformDialect) {
  auto result = read(
      "{\\rtf1\\ansi\\ansicpg1252\\cocoartf2639\n\\cocoatextscaling0\\cocoaplatform0"
      "{\\fonttbl\\f0\\fnil\\fcharset0 LucidaGrande;\\f1\\fswiss\\fcharset0 Helvetica;}\n"
      "{\\colortbl;\\red255\\green255\\blue255;\\red255\\green0\\blue0;}\n"
      "{\\*\\expandedcolortbl;;\\csgenericrgb\\c100000\\c0\\c0\\c50000;}\n"
      "\\paperw11900\\paperh16840\\margl1440\\viewkind0\n"
      "\\pard\\tx560\\tqr\\tx1120\\pardeftab720\\qc\\slleading40\\slmaximum600\\slminimum200\\partightenfacto"
      "r0\n"
      "\n\\f0\\fs80\\fsmilli40250 \\cf2 "
      "\\expnd5\\expndtw27\\kerning1\\ulstyle33027\\ulc1\\strikestyle9\\strikec2"
      "\\outl0\\strokewidth-60 \\strokec1 \\shad\\shadx40\\shady-40\\shadr20\\shado255 \\shadc0 "
      "\\obliqueness250\\expansion100\\CocoaLigature0 Format\\\n"
      "\\f1\\fs24 \\cf0 \\shad0 \\ulnone \\strike0 \\outl0\\strokewidth0 \\expnd0\\expndtw0\\obliqueness0"
      "\\expansion0\\CocoaLigature1 x}");
  ASSERT_FALSE(result.error) << result.message;
  EXPECT_EQ(result.text.text(), u"Format\nx");
  const TextAttributes& first = result.text.attributesAt(0);
  EXPECT_EQ(first.font, (FontDescriptor{"LucidaGrande", 40.25, false, false}));
  EXPECT_EQ(first.foregroundColor, (Color{1, 0, 0, 0.5}));
  EXPECT_EQ(first.kerning, 1.35);
  EXPECT_EQ(first.underlineStyle, 0x8103);
  EXPECT_EQ(first.underlineColor, (Color{1, 1, 1, 1}));
  EXPECT_EQ(first.strikethroughStyle, 9);
  EXPECT_EQ(first.strikethroughColor, (Color{1, 0, 0, 0.5}));
  EXPECT_EQ(first.strokeWidth, -3);
  EXPECT_EQ(first.strokeColor, (Color{1, 1, 1, 1}));
  ASSERT_TRUE(first.shadow);
  EXPECT_EQ(*first.shadow, (TextShadow{2, -2, 1, Color{0, 0, 0, 1}}));
  EXPECT_EQ(first.obliqueness, 0.125);
  EXPECT_EQ(first.expansion, 0.05);
  EXPECT_EQ(first.ligature, 0);
  const ParagraphStyle& paragraph = first.paragraphStyle;
  EXPECT_EQ(paragraph.alignment, TextAlignment::Center);
  EXPECT_EQ(paragraph.lineSpacing, 2);
  EXPECT_EQ(paragraph.maximumLineHeight, 30);
  EXPECT_EQ(paragraph.minimumLineHeight, 10);
  EXPECT_EQ(paragraph.defaultTabInterval, 36);
  EXPECT_EQ(paragraph.tabStops,
            (std::vector<TabStop>{{28, TextAlignment::Left}, {56, TextAlignment::Right}}));

  // Turning decorations off keeps their colours, as a group would.
  TextAttributes second = result.text.attributesAt(7);
  EXPECT_EQ(second.underlineColor, first.underlineColor);
  second.underlineColor = second.strikethroughColor = second.strokeColor = std::nullopt;
  second.paragraphStyle = {};
  EXPECT_EQ(second, TextAttributes{});
}

TEST(RtfReaderTest, ReadsWordProcessorDocuments) {
  auto result = read(
      "{\\rtf1\\ansi\\deff0{\\fonttbl{\\f0\\froman\\fcharset0 Times New Roman{\\*\\panose 02020603}"
      "{\\*\\falt Times};}{\\f1\\fcharset204 Arial Cyr;}}"
      "{\\stylesheet{\\s0 Normal;}}{\\info{\\title Ignored}}"
      "{\\*\\generator Writer;}\\pard\\plain\\fi-360\\li720\\ri144\\sb120\\sa240\\sl360\\slmult1\\qj "
      "{\\b bold}{\\i\\ul\\uld under}\\~{\\f1 \\'c0\\'c1}\\line\\u8364?\\uc2\\u20013\\'d6\\'d0 "
      "{\\field{\\*\\fldinst HYPERLINK \"x\"}{\\fldrslt link}}{\\pict\\pngblip 89504e47}\\tab\\emdash"
      "\\par{\\up6 up}{\\dn4 dn}\\highlight1 {\\*\\unknowndest hidden}\\unknownword ok\\\\\\{\\}}");
  ASSERT_FALSE(result.error) << result.message;
  EXPECT_EQ(result.text.utf8(),
            "boldunder\xC2\xA0\xD0\x90\xD0\x91\xE2\x80\xA8\xE2\x82\xAC\xE4\xB8\xAD link\t\xE2\x80\x94\n"
            "updnok\\{}");
  EXPECT_EQ(result.text.attributesAt(0).font, (FontDescriptor{"Times New Roman", 12, true, false}));
  EXPECT_EQ(result.text.attributesAt(5).underlineStyle, 0x101);
  EXPECT_TRUE(result.text.attributesAt(5).font.italic);
  EXPECT_EQ(result.text.attributesAt(11).font.family, "Arial Cyr");
  const ParagraphStyle& paragraph = result.text.attributesAt(0).paragraphStyle;
  EXPECT_EQ(paragraph.alignment, TextAlignment::Justified);
  EXPECT_EQ(paragraph.headIndent, 36);
  EXPECT_EQ(paragraph.firstLineHeadIndent, 18);
  EXPECT_EQ(paragraph.tailIndent, -7.2);
  EXPECT_EQ(paragraph.paragraphSpacingBefore, 6);
  EXPECT_EQ(paragraph.paragraphSpacing, 12);
  EXPECT_EQ(paragraph.lineHeightMultiple, 1.5);
  std::size_t up = result.text.text().find(u"up");
  EXPECT_EQ(result.text.attributesAt(up).baselineOffset, 3);
  EXPECT_EQ(result.text.attributesAt(up + 2).baselineOffset, -2);
}

TEST(RtfReaderTest, DecodesCodePagesPerDocumentAndFont) {
  EXPECT_EQ(read("{\\rtf1\\mac \\'8e\\'a5}").text.text(), u"\u00E9\u2022");
  EXPECT_EQ(read("{\\rtf1\\ansi\\ansicpg10000 \\'8e}").text.text(), u"\u00E9");
  EXPECT_EQ(read("{\\rtf1\\ansi\\ansicpg932 \\'82\\'a0\\'83e}").text.text(), u"\u3042\u30C6");
  EXPECT_EQ(
      read("{\\rtf1\\ansi\\ansicpg1252{\\fonttbl\\f0\\fnil\\fcharset128 HiraKaku;\\f1\\fnil\\cpg1250 X;}"
           "\\f0 \\'82\\'a0\\f1 \\'9a}")
          .text.text(),
      u"\u3042\u0161");
  // Unknown code pages and charsets fall back to the document's encoding.
  EXPECT_EQ(read("{\\rtf1\\ansi\\ansicpg99999{\\fonttbl\\f0\\fcharset250 X;}\\f0 \\'e9}").text.text(),
            u"\u00E9");
  // Raw 8-bit text decodes like escaped bytes; invalid bytes become replacement characters.
  EXPECT_EQ(read("{\\rtf1\\ansi\\ansicpg65001 \xC3\xA9\xFF}").text.text(), u"\u00E9\uFFFD");
}

TEST(RtfReaderTest, SymbolFontsReadAsTheGlyphsTheyShow) {
  const std::string fonts =
      "{\\rtf1\\ansi{\\fonttbl{\\f0 Times;}{\\f1\\ftech\\fcharset2 Symbol;}{\\f2\\fcharset2 Wingdings;}"
      "{\\f3\\fnil\\fprq0\\fcharset128 OpenSymbol{\\*\\falt Arial Unicode MS};}}";
  // Symbol: letters are Greek, the rest of the code page mathematics, arrows and the bullet at 0xB7, in
  // bytes or in the private-use characters U+F020-U+F0FF; other fonts keep their own character set.
  EXPECT_EQ(
      read(fonts + "\\f1 \\'b7 abgD\\'b3\\'d6\\'a5\\'ae\\'e5\\'f2\\'a0\\u-3913 ?\\u-3999 ?\\'80\\f0 \\'b7 a}")
          .text.text(),
      u"\u2022 \u03B1\u03B2\u03B3\u0394\u2265\u221A\u221E\u2192\u2211\u222B\u20AC\u2022\u03B1\uFFFD\u00B7 a");
  // Other symbol fonts keep their glyphs in the private-use area; the symbol charset alone is not Symbol.
  EXPECT_EQ(read(fonts + "\\f2 \\'9fJ\\f1 x}").text.text(), u"\uF09F\uF04A\u03BE");
  // LibreOffice's list bullets in OpenSymbol, whatever charset the font declares.
  EXPECT_EQ(read(fonts + "{\\listtext\\f3 \\'96\\tab}Item{\\f3 \\u57356 ?1.}}").text.text(),
            u"\u2022\tItem\u20221.");
  // A font that is not a symbol font keeps decoding by its charset.
  EXPECT_EQ(read("{\\rtf1\\ansi{\\fonttbl{\\f0\\fcharset128 Gothic;}}\\f0 \\'82\\'a0}").text.text(),
            u"\u3042");
}

TEST(RtfReaderTest, FootnoteReferencesAreNumbered) {
  auto result = read(
      "{\\rtf1 Text{\\super\\chftn}{\\footnote\\pard{\\super\\chftn} The first note.} more"
      "{\\super\\chftn}{\\footnote {\\super\\chftn} Two.} end{\\*\\ftnsep\\chftnsep}}");
  EXPECT_FALSE(result.error) << result.message;
  EXPECT_EQ(result.text.text(), u"Text1 more2 end");
  EXPECT_EQ(result.text.attributesAt(4).superscript, 1);
}

TEST(RtfReaderTest, UnicodeFallbacksAreSkippedByCount) {
  EXPECT_EQ(read("{\\rtf1 \\uc0\\u1055 \\u1088 x}").text.text(), u"\u041F\u0440x");
  EXPECT_EQ(read("{\\rtf1 \\uc2\\u20013\\'d6\\'d0y}").text.text(), u"\u4E2Dy");
  EXPECT_EQ(read("{\\rtf1 \\u20013{\\'d6}z}").text.text(), u"\u4E2D\u00D6z");
  EXPECT_EQ(read("{\\rtf1 \\u-10179?\\u-9047?}").text.text(), u"\U0001F4A9");
  EXPECT_EQ(read("{\\rtf1 \\uc1\\u65\\b ab}").text.text(), u"Aab");
  // Beyond a 16-bit unit (signed or not) a parameter names no character.
  EXPECT_EQ(read("{\\rtf1 \\u65535?\\u-32768?\\u65536?\\u-32769?\\u99999999999?}").text.text(),
            u"\uFFFF\u8000\uFFFD\uFFFD\uFFFD");
  EXPECT_EQ(read("{\\rtf1 {\\fonttbl{\\f0 A\\u70000?B;}}\\f0 x}").text.attributesAt(0).font.family,
            "A\uFFFDB");
}

TEST(RtfReaderTest, AbsurdSizesAndDistancesAreClamped) {
  auto result = read(
      "{\\rtf1 \\fs999999999999\\li999999999\\fi-999999999\\ri99999999\\sb-99999999\\tx2147483647"
      "\\expnd99999999\\up99999999 big\\fs-4\\fsmilli-9 none\\fsmilli999999999 milli}");
  ASSERT_FALSE(result.error) << result.message;
  const TextAttributes& big = result.text.attributesAt(0);
  EXPECT_EQ(big.font.pointSize, 1638);
  EXPECT_EQ(big.kerning, 1638);
  EXPECT_EQ(big.baselineOffset, 1638);
  const ParagraphStyle& paragraph = big.paragraphStyle;
  EXPECT_EQ(paragraph.headIndent, 1584);  // 22 inches
  EXPECT_EQ(paragraph.firstLineHeadIndent, 0);
  EXPECT_EQ(paragraph.tailIndent, -1584);
  EXPECT_EQ(paragraph.paragraphSpacingBefore, -1584);
  ASSERT_EQ(paragraph.tabStops.size(), 1u);
  EXPECT_EQ(paragraph.tabStops[0].location, 1584);
  EXPECT_EQ(result.text.attributesAt(4).font.pointSize, 0);
  EXPECT_EQ(result.text.attributesAt(9).font.pointSize, 1638);
}

TEST(RtfReaderTest, RejectsWhatIsNotRtfAndKeepsTextOfBrokenDocuments) {
  for (std::string_view bad : {"", "Hello", "{\\rtf", "{\\rtf1 abc", "{\\rtf1 {\\b abc}", " {\\rtf1 x}",
                               "{\\rt1 x}", "{\\rtf1 \\bin5 ab}", "{\\rtf1 x\\", "{\\rtf1 \\'4"}) {
    EXPECT_TRUE(read(bad).error) << bad;
  }
  auto truncated = read("{\\rtf1 {\\b bold} and more");
  EXPECT_TRUE(truncated.error);
  EXPECT_EQ(truncated.text.text(), u"bold and more");
  auto trailing = read("{\\rtf1 done}} and garbage {");
  EXPECT_FALSE(trailing.error);
  EXPECT_EQ(trailing.text.text(), u"done");
}

TEST(RtfReaderTest, HostileInputStaysBounded) {
  std::string nested = "{\\rtf1 ";
  nested += std::string(10000, '{') + "deep" + std::string(10000, '}') + "}";
  auto deep = read(nested);
  EXPECT_FALSE(deep.error);
  EXPECT_EQ(deep.text.text(), u"deep");

  auto tooDeep = read("{\\rtf1 " + std::string(200000, '{'));
  EXPECT_TRUE(tooDeep.error);

  auto numbers = read(
      "{\\rtf1 \\fs99999999999999999999\\cf-2147483648\\ulc99999\\u99999999999 "
      "\\f-5\\sl-99999999\\bin-5 \\shado-3\\'zzq\\" +
      std::string(300, 'a') + "1 text}");
  EXPECT_FALSE(numbers.error) << numbers.message;
  EXPECT_NE(numbers.text.text().find(u"q"), std::u16string::npos);

  EXPECT_EQ(read("{\\rtf1 \\uc99999999\\u65 abcdefghijklmnopqrstuvwxyz}").text.text(), u"Aqrstuvwxyz");
  EXPECT_FALSE(read("{\\rtf1 \\bin3 {{{x}").error);
  EXPECT_EQ(read("{\\rtf1 \\bin3 {{{x}").text.text(), u"x");
  EXPECT_FALSE(read("{\\rtf1 {\\colortbl;\\red999\\green-1\\blue3}{\\fonttbl{\\f0 A}}\\cf1\\f0 y}").error);
}

TEST(RtfReaderTest, SuperscriptsHiddenTextAndTabKinds) {
  auto result = read(
      "{\\rtf1\\ansi{\\fonttbl\\f0 Helvetica;}"
      "\\pard\\tqc\\tx720\\tqdec\\tx1440\\tqr\\tx2160\\tx2880\\qvalinebreakmode4 "
      "E=mc{\\super 2}H{\\sub 2}O\\super x\\nosupersub y{\\up6\\sub z\\nosupersub w}"
      " shown{\\v hidden\\u8364?{\\b nested}}\\v also hidden\\v0  again\\v gone\\plain  after plain"
      "\\par\\pard\\qvalinebreakmode99 next}");
  ASSERT_FALSE(result.error) << result.message;
  const AttributedString& text = result.text;
  EXPECT_EQ(text.utf8(), "E=mc2H2Oxyzw shown again after plain\nnext");
  auto at = [&](std::u16string_view what) { return text.attributesAt(text.text().find(what)); };
  EXPECT_EQ(at(u"2H").superscript, 1);
  EXPECT_EQ(at(u"2O").superscript, -1);
  EXPECT_EQ(at(u"O").superscript, 0);
  EXPECT_EQ(at(u"x").superscript, 1);
  EXPECT_EQ(at(u"y").superscript, 0);
  EXPECT_EQ(at(u"z").superscript, -1);
  EXPECT_EQ(at(u"z").baselineOffset, 3);
  // \nosupersub ends raising and lowering of either kind.
  EXPECT_EQ(at(u"w").superscript, 0);
  EXPECT_EQ(at(u"w").baselineOffset, 0);
  const ParagraphStyle& first = at(u"E").paragraphStyle;
  EXPECT_EQ(first.lineBreakMode, LineBreakMode::TruncateTail);
  EXPECT_EQ(first.tabStops, (std::vector<TabStop>{{36, TextAlignment::Center},
                                                  {72, TextAlignment::Right, true},
                                                  {108, TextAlignment::Right},
                                                  {144, TextAlignment::Left}}));
  // An unknown mode leaves the paragraph's own.
  EXPECT_EQ(at(u"next").paragraphStyle.lineBreakMode, LineBreakMode::WordWrap);
}

TEST(RtfReaderTest, EveryCorpusDocumentReadsSensibly) {
  std::filesystem::path corpus = std::filesystem::path(QVA_CORPUS_DIR) / "rtf";
  if (!std::filesystem::is_directory(corpus)) {
    GTEST_SKIP() << "no corpus at " << corpus;
  }
  struct Expectation {
    const char* file;
    const char* contains;  // UTF-8
  };
  const Expectation expectations[] = {
      {"skim-ja.lproj-Credits.rtf", "\xE3\x81"},  // Shift-JIS hiragana
      {"skim-ru.lproj-Credits.rtf", "\xD0"},      // Cyrillic from \uN
      {"tika-testRTFWithCurlyBraces.rtf", "{"},
      {"rtfjs-pile-of-poo-source.rtf", "\xF0\x9F\x92\xA9"},  // surrogate pair
      {"tika-testRTF-ms932.rtf", "\xE3"},
      {"macports-ReadMe.rtf", "MacPorts"},
      // The word "hidden" between them is hidden text.
      {"rtfjs-sample-source.rtf", "And a bit of  text"},
      // LibreOffice's list bullets, in its OpenSymbol font.
      {"tika-testRTFListLibreOffice.rtf", "\xE2\x80\xA2"},
  };
  int documents = 0;
  for (const auto& entry : std::filesystem::directory_iterator(corpus)) {
    if (entry.path().extension() != ".rtf") {
      continue;
    }
    ++documents;
    std::ifstream file(entry.path(), std::ios::binary);
    auto result = read(std::string(std::istreambuf_iterator<char>(file), {}));
    std::string text = result.text.utf8();
    EXPECT_FALSE(result.error) << entry.path() << ": " << result.message;
    EXPECT_GT(text.size(), 3u) << entry.path();
    EXPECT_EQ(text.find("fonttbl"), std::string::npos) << entry.path();
    EXPECT_EQ(text.find('\x1A'), std::string::npos) << entry.path();
    for (const Expectation& expectation : expectations) {
      if (entry.path().filename() == expectation.file) {
        EXPECT_NE(text.find(expectation.contains), std::string::npos) << entry.path() << "\n" << text;
      }
    }
  }
  EXPECT_GT(documents, 10);
}

}  // namespace
}  // namespace qva
