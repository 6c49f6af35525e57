#include <gtest/gtest.h>

#include <cstdlib>

#include "foundation/text/AttributedString.h"
#include "foundation/text/FontCatalogue.h"
#include "foundation/text/TextEncoding.h"

namespace qva {
namespace {

// The project's font configuration, also when the executable runs outside CTest.
const bool kProjectFonts = setenv("FONTCONFIG_FILE", QVA_SOURCE_DIR "/data/fonts/fonts.conf", 0) == 0;

TextAttributes colored(double red) {
  TextAttributes attributes;
  attributes.foregroundColor = Color{red, 0, 0, 1};
  return attributes;
}

TEST(AttributedStringTest, RunsCoalesceAndCoverTheText) {
  AttributedString text;
  text.append(u"ab", colored(1));
  text.append(u"cd", colored(1));
  text.append(u"ef", colored(0.5));
  text.append(u"", colored(0.2));
  ASSERT_EQ(text.runs().size(), 2u);
  EXPECT_EQ(text.runs()[0].length, 4u);
  EXPECT_EQ(text.runs()[1].location, 4u);
  EXPECT_EQ(text.attributesAt(3).foregroundColor.red, 1);
  EXPECT_EQ(text.attributesAt(4).foregroundColor.red, 0.5);
  EXPECT_EQ(text.attributesAt(5).foregroundColor.red, 0.5);
}

TEST(AttributedStringTest, SubstringAndReplaceKeepFormattingAndClampRanges) {
  AttributedString text(u"Hello", colored(1));
  text.append(u" World", colored(0));
  AttributedString tail = text.substring(3, 100);
  EXPECT_EQ(tail.text(), u"lo World");
  ASSERT_EQ(tail.runs().size(), 2u);
  EXPECT_EQ(tail.runs()[0].length, 2u);
  EXPECT_TRUE(text.substring(20, 3).empty());

  text.replace(5, 1, AttributedString(u"--", colored(1)));
  EXPECT_EQ(text.text(), u"Hello--World");
  ASSERT_EQ(text.runs().size(), 2u);  // the inserted run merges with the equal run before it
  EXPECT_EQ(text.runs()[0].length, 7u);
  text.replace(100, 5, AttributedString(u"!", colored(0)));
  EXPECT_EQ(text.utf8(), "Hello--World!");
}

TEST(AttributedStringTest, LengthsCountUtf16Units) {
  AttributedString text = AttributedString::fromUtf8("a\xF0\x9F\x92\xA9\xC3\xA9");
  EXPECT_EQ(text.length(), 4u);
  EXPECT_EQ(text.utf8(), "a\xF0\x9F\x92\xA9\xC3\xA9");
}

TEST(TextEncodingTest, MacRomanAndCodePagesDecodeAndEncode) {
  EXPECT_EQ(TextEncoding::macOSRoman().decode("\x8E\xA5"), u"\u00E9\u2022");
  EXPECT_EQ(TextEncoding::macOSRoman().encode(u"\u00E9"), std::optional<std::string>("\x8E"));
  EXPECT_FALSE(TextEncoding::macOSRoman().encode(u"\u4E2D").has_value());
  auto shiftJis = TextEncoding::fromCodePage(932);
  ASSERT_TRUE(shiftJis);
  EXPECT_EQ(shiftJis->decode("\x82\xA0"), u"\u3042");
  EXPECT_EQ(TextEncoding::fromCodePage(1251)->decode("\xC0"), u"\u0410");
  EXPECT_EQ(TextEncoding::fromCodePage(10000)->decode("\x8E"), u"\u00E9");
  EXPECT_EQ(TextEncoding::fromCodePage(28592)->decode("\xA1"), u"\u0104");
  EXPECT_EQ(TextEncoding::fromCharset(238)->decode("\x9A"), u"\u0161");
  EXPECT_FALSE(TextEncoding::fromCodePage(99999).has_value());
  EXPECT_FALSE(TextEncoding::fromCodePage(-5).has_value());
  EXPECT_FALSE(TextEncoding::fromCharset(0).has_value());
  EXPECT_FALSE(TextEncoding::named("no-such-encoding").has_value());
}

TEST(TextEncodingTest, Utf8AndUtf16HandleInvalidInputAndByteOrderMarks) {
  EXPECT_EQ(TextEncoding::utf8().decode(std::string{'a', '\xFF', 'b'}), u"a\uFFFDb");
  EXPECT_EQ(TextEncoding::utf8().decodeToUtf8("\xC3"), "\xEF\xBF\xBD");
  auto utf16 = TextEncoding::utf16();
  EXPECT_EQ(utf16.decode(std::string{'\xFF', '\xFE', 'A', '\0'}), u"A");
  EXPECT_EQ(utf16.decode(std::string("\xFE\xFF\0A", 4)), u"A");
  EXPECT_EQ(utf16.decode(std::string("\0A\0", 3)), u"A\uFFFD");
  EXPECT_EQ(utf16.encode(u"A"), std::optional<std::string>(std::string{'\xFF', '\xFE', 'A', '\0'}));
  EXPECT_EQ(TextEncoding::utf8FromUtf16(u"\xD800x"), "\xEF\xBF\xBDx");
}

TEST(FontCatalogueTest, ConfiguredNamesExistAndUnknownNamesDoNot) {
  auto& fonts = FontCatalogue::shared();
  EXPECT_EQ(fonts.resolvedFamily("LucidaGrande"), std::optional<std::string>("DejaVu Sans"));
  EXPECT_EQ(fonts.resolvedFamily("Lucida Grande"), std::optional<std::string>("DejaVu Sans"));
  EXPECT_EQ(fonts.resolvedFamily("Helvetica"), std::optional<std::string>("Liberation Sans"));
  EXPECT_EQ(fonts.resolvedFamily("Times"), std::optional<std::string>("Liberation Serif"));
  EXPECT_EQ(fonts.resolvedFamily("Courier"), std::optional<std::string>("Liberation Mono"));
  EXPECT_TRUE(fonts.fontExists("Arial"));
  EXPECT_TRUE(fonts.fontExists("DejaVu Sans"));
  EXPECT_FALSE(fonts.fontExists("NoSuchFontAnywhere"));
  EXPECT_FALSE(fonts.fontExists(""));
}

}  // namespace
}  // namespace qva
