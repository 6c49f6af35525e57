#include <gtest/gtest.h>

#include <functional>

#include "foundation/rtf/RtfReader.h"
#include "foundation/rtf/RtfWriter.h"

namespace qva {
namespace {

struct AttributeCase {
  const char* name;
  std::function<void(TextAttributes&)> apply;
};

// Built by functions rather than braces, so that each case below stays on one line.
Color rgba(double red, double green, double blue, double alpha) {
  return Color{red, green, blue, alpha};
}
TextShadow shadow(double x, double y, double blur, Color colour) {
  return TextShadow{x, y, blur, colour};
}

// Values are chosen on the grid the document carries (twips, 1/100000 for colour components).
const std::vector<AttributeCase>& attributeCases() {
  static const std::vector<AttributeCase> cases{
      {"FontFamily", [](TextAttributes& a) { a.font.family = "LucidaGrande"; }},
      {"FontWithSpacesAndEscapes", [](TextAttributes& a) { a.font.family = "My {Font}; \\ Name"; }},
      {"FontNonAscii", [](TextAttributes& a) { a.font.family = "Schrift \xC3\xBC \xE6\x98\x8E"; }},
      {"HalfPointSize", [](TextAttributes& a) { a.font.pointSize = 40.5; }},
      {"MilliPointSize", [](TextAttributes& a) { a.font.pointSize = 13.125; }},
      {"Bold", [](TextAttributes& a) { a.font.bold = true; }},
      {"Italic", [](TextAttributes& a) { a.font.italic = true; }},
      {"Foreground", [](TextAttributes& a) { a.foregroundColor = rgba(1, 0, 0, 1); }},
      {"ForegroundFine", [](TextAttributes& a) { a.foregroundColor = rgba(0.12345, 0.5, 0.99999, 1); }},
      {"ForegroundAlpha", [](TextAttributes& a) { a.foregroundColor = rgba(0.2, 0.4, 0.6, 0.25); }},
      {"WhiteForeground", [](TextAttributes& a) { a.foregroundColor = rgba(1, 1, 1, 1); }},
      {"Background", [](TextAttributes& a) { a.backgroundColor = rgba(0, 0, 1, 1); }},
      {"BlackBackground", [](TextAttributes& a) { a.backgroundColor = rgba(0, 0, 0, 1); }},
      {"UnderlineSingle", [](TextAttributes& a) { a.underlineStyle = TextStyleMask::Single; }},
      {"UnderlineThick", [](TextAttributes& a) { a.underlineStyle = TextStyleMask::Thick; }},
      {"UnderlineDouble", [](TextAttributes& a) { a.underlineStyle = TextStyleMask::Double; }},
      {"UnderlineDot", [](TextAttributes& a) { a.underlineStyle = 0x101; }},
      {"UnderlineDashDotDot", [](TextAttributes& a) { a.underlineStyle = 0x401; }},
      {"UnderlineByWord", [](TextAttributes& a) { a.underlineStyle = 0x8001; }},
      {"UnderlineDoubleDashDotByWord", [](TextAttributes& a) { a.underlineStyle = 0x8309; }},
      {"UnderlinePatternOnly", [](TextAttributes& a) { a.underlineStyle = 0x200; }},
      {"UnderlineColor", [](TextAttributes& a) { a.underlineColor = rgba(1, 1, 1, 1); }},
      {"StrikeSingle", [](TextAttributes& a) { a.strikethroughStyle = TextStyleMask::Single; }},
      {"StrikeDouble", [](TextAttributes& a) { a.strikethroughStyle = TextStyleMask::Double; }},
      {"StrikeThickDashByWord", [](TextAttributes& a) { a.strikethroughStyle = 0x8202; }},
      {"StrikePatternOnly", [](TextAttributes& a) { a.strikethroughStyle = 0x300; }},
      {"StrikeColor", [](TextAttributes& a) { a.strikethroughColor = rgba(0, 1, 0, 1); }},
      {"StrokeWidth", [](TextAttributes& a) { a.strokeWidth = 3.5; }},
      {"FillAndStroke", [](TextAttributes& a) { a.strokeWidth = -2; }},
      {"StrokeColor", [](TextAttributes& a) { a.strokeColor = rgba(0.5, 0.5, 0.5, 1); }},
      {"Kerning", [](TextAttributes& a) { a.kerning = 1.35; }},
      {"NegativeKerning", [](TextAttributes& a) { a.kerning = -2.5; }},
      {"Obliqueness", [](TextAttributes& a) { a.obliqueness = 0.25; }},
      {"NegativeObliqueness", [](TextAttributes& a) { a.obliqueness = -0.1; }},
      {"Expansion", [](TextAttributes& a) { a.expansion = 0.3; }},
      {"Shadow", [](TextAttributes& a) { a.shadow = shadow(2, -2, 1, rgba(0, 0, 0, 1)); }},
      {"ShadowTranslucent", [](TextAttributes& a) { a.shadow = shadow(-3.5, 4, 0, rgba(0, 0, 0, 0.3)); }},
      {"ShadowColored", [](TextAttributes& a) { a.shadow = shadow(0, 0, 6, rgba(1, 0, 0, 0.5)); }},
      {"ShadowZeroAlpha", [](TextAttributes& a) { a.shadow = shadow(1, 1, 1, rgba(0, 0, 0, 0)); }},
      {"LigatureNone", [](TextAttributes& a) { a.ligature = 0; }},
      {"LigatureAll", [](TextAttributes& a) { a.ligature = 2; }},
      {"Superscript", [](TextAttributes& a) { a.baselineOffset = 3; }},
      {"Subscript", [](TextAttributes& a) { a.baselineOffset = -2.5; }},
      {"SuperscriptLevel", [](TextAttributes& a) { a.superscript = 1; }},
      {"SubscriptLevel", [](TextAttributes& a) { a.superscript = -1; }},
      {"SuperscriptOverBaselineOffset",
       [](TextAttributes& a) {
         a.superscript = 1;
         a.baselineOffset = 2;
       }},
      {"LineBreakCharWrap",
       [](TextAttributes& a) { a.paragraphStyle.lineBreakMode = LineBreakMode::CharWrap; }},
      {"LineBreakClip", [](TextAttributes& a) { a.paragraphStyle.lineBreakMode = LineBreakMode::Clip; }},
      {"LineBreakTruncateHead",
       [](TextAttributes& a) { a.paragraphStyle.lineBreakMode = LineBreakMode::TruncateHead; }},
      {"LineBreakTruncateMiddle",
       [](TextAttributes& a) { a.paragraphStyle.lineBreakMode = LineBreakMode::TruncateMiddle; }},
      {"LineBreakTruncateTail",
       [](TextAttributes& a) { a.paragraphStyle.lineBreakMode = LineBreakMode::TruncateTail; }},
      {"AlignLeft", [](TextAttributes& a) { a.paragraphStyle.alignment = TextAlignment::Left; }},
      {"AlignCenter", [](TextAttributes& a) { a.paragraphStyle.alignment = TextAlignment::Center; }},
      {"AlignRight", [](TextAttributes& a) { a.paragraphStyle.alignment = TextAlignment::Right; }},
      {"AlignJustified", [](TextAttributes& a) { a.paragraphStyle.alignment = TextAlignment::Justified; }},
      {"LineSpacing", [](TextAttributes& a) { a.paragraphStyle.lineSpacing = 4.5; }},
      {"MinimumLineHeight", [](TextAttributes& a) { a.paragraphStyle.minimumLineHeight = 20; }},
      {"MaximumLineHeight", [](TextAttributes& a) { a.paragraphStyle.maximumLineHeight = 30.25; }},
      {"LineHeightMultiple", [](TextAttributes& a) { a.paragraphStyle.lineHeightMultiple = 1.5; }},
      {"ParagraphSpacing", [](TextAttributes& a) { a.paragraphStyle.paragraphSpacing = 6; }},
      {"ParagraphSpacingBefore", [](TextAttributes& a) { a.paragraphStyle.paragraphSpacingBefore = 3; }},
      {"Indents",
       [](TextAttributes& a) {
         a.paragraphStyle.headIndent = 18;
         a.paragraphStyle.firstLineHeadIndent = 9;
         a.paragraphStyle.tailIndent = -12;
       }},
      {"Tabs",
       [](TextAttributes& a) {
         a.paragraphStyle.defaultTabInterval = 36;
         a.paragraphStyle.tabStops = {{28, TextAlignment::Left},
                                      {100, TextAlignment::Right},
                                      {150.5, TextAlignment::Center},
                                      {220, TextAlignment::Right, true}};
       }},
  };
  return cases;
}

AttributedString roundTrip(const AttributedString& text) {
  std::string document = RtfWriter::write(text);
  for (char c : document) {
    EXPECT_LT(static_cast<unsigned char>(c), 0x80) << "the document must be ASCII";
  }
  RtfReader::Result result = RtfReader::read(document);
  EXPECT_FALSE(result.error) << result.message << "\n" << document;
  return result.text;
}

class RtfAttributeRoundTrip : public testing::TestWithParam<AttributeCase> {};

TEST_P(RtfAttributeRoundTrip, WriteThenReadGivesTheSameAttributes) {
  TextAttributes attributes;
  GetParam().apply(attributes);
  AttributedString text(u"Format String", attributes);
  EXPECT_EQ(roundTrip(text), text) << RtfWriter::write(text);
}

INSTANTIATE_TEST_SUITE_P(EveryAttribute, RtfAttributeRoundTrip, testing::ValuesIn(attributeCases()),
                         [](const testing::TestParamInfo<AttributeCase>& param) { return param.param.name; });

TEST(RtfRoundTripTest, AllAttributesTogetherAndPairsAcrossRuns) {
  TextAttributes all;
  for (const AttributeCase& attributeCase : attributeCases()) {
    attributeCase.apply(all);
  }
  AttributedString text(u"Every attribute", all);
  EXPECT_EQ(roundTrip(text), text);

  // Each attribute next to each other one, in neighbouring runs of one document.
  const auto& cases = attributeCases();
  for (std::size_t i = 0; i < cases.size(); i += 3) {
    AttributedString runs;
    for (std::size_t j = 0; j < cases.size(); ++j) {
      TextAttributes attributes;
      cases[i].apply(attributes);
      cases[j].apply(attributes);
      runs.append(u"run ", attributes);
      runs.append(u"plain ", TextAttributes{});
    }
    EXPECT_EQ(roundTrip(runs), runs) << cases[i].name;
  }
}

TEST(RtfRoundTripTest, TextWithEscapesLineBreaksAndUnicodeSurvives) {
  AttributedString text(
      u"a\\b{c}d\ne\tf\u2028g\u2029 h\r\u00E9\u4E2D\U0001F4A9 \u0001 trailing  \"quotes\" ;semi",
      TextAttributes{});
  EXPECT_EQ(roundTrip(text), text);
  EXPECT_EQ(roundTrip(AttributedString(u" leading space and 12 digits")).text(),
            u" leading space and 12 digits");
  EXPECT_TRUE(roundTrip(AttributedString()).empty());
}

TEST(RtfRoundTripTest, ParagraphsKeepTheirOwnLineBreakModesAndTabs) {
  TextAttributes clipped;
  clipped.paragraphStyle.lineBreakMode = LineBreakMode::Clip;
  clipped.paragraphStyle.tabStops = {{72, TextAlignment::Right, true}};
  TextAttributes truncated;
  truncated.paragraphStyle.lineBreakMode = LineBreakMode::TruncateMiddle;
  truncated.paragraphStyle.tabStops = {{36, TextAlignment::Center}};
  AttributedString text;
  text.append(u"clipped\t1.5\n", clipped);
  text.append(u"truncated\n", truncated);
  text.append(u"wrapped", TextAttributes{});
  EXPECT_EQ(roundTrip(text), text) << RtfWriter::write(text);
}

TEST(RtfRoundTripTest, HostileNumbersAreKeptWithinRange) {
  TextAttributes attributes;
  attributes.font.pointSize = 1e300;
  attributes.kerning = -1e300;
  attributes.foregroundColor = Color{2, -1, 0.5, 7};
  attributes.obliqueness = std::numeric_limits<double>::quiet_NaN();
  RtfReader::Result result = RtfReader::read(RtfWriter::write(AttributedString(u"x", attributes)));
  ASSERT_FALSE(result.error);
  const TextAttributes& read = result.text.attributesAt(0);
  // Written as the largest parameters RTF holds, read back at the largest size and distance accepted.
  EXPECT_EQ(read.font.pointSize, 1638);
  EXPECT_EQ(read.kerning, -1584);
  EXPECT_EQ(read.foregroundColor, (Color{1, 0, 0.5, 1}));
  EXPECT_EQ(read.obliqueness, 0);
}

}  // namespace
}  // namespace qva
