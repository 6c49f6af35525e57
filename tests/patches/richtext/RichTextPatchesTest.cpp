#include <gtest/gtest.h>

#include <cstdlib>

#include "foundation/rtf/RTFStringExtensions.h"
#include "framework/PatchRegistry.h"
#include "patches/richtext/RTF_String_CheckerPlugIn.h"
#include "patches/richtext/RTF_String_LengthPlugIn.h"
#include "patches/richtext/RTF_String_PrinterPlugIn.h"
#include "patches/richtext/RTF_String_SubrangePlugIn.h"
#include "patches/richtext/RTF_String_With_StringPlugIn.h"
#include "patches/richtext/RTF_String_to_Plain_TextPlugIn.h"
#include "patches/richtext/RTF_StylePlugIn.h"
#include "patches/richtext/RichTextPatches.h"
#include "support/PatchDriver.h"

namespace qva {
namespace {

// The project's font configuration, also when the executable runs outside CTest.
const bool kProjectFonts = setenv("FONTCONFIG_FILE", QVA_SOURCE_DIR "/data/fonts/fonts.conf", 0) == 0;

using X = RTFStringExtensions;
const Color kRed{1, 0, 0, 1};
const Color kWhite{1, 1, 1, 1};

TextAttributes styleOf(PatchDriver& driver) {
  EXPECT_TRUE(driver.frame(0));
  auto attributes = X::describedRTFAttributes(driver.string("outputRTFStyle"));
  EXPECT_TRUE(attributes) << driver.string("outputRTFStyle");
  return attributes.value_or(TextAttributes{});
}

// An RTF output read back as attributed text; empty where it does not parse.
AttributedString rtfOutput(const PatchDriver& driver, const char* key) {
  const auto text = X::RTFString(driver.string(key));
  EXPECT_TRUE(text) << driver.string(key);
  return text.value_or(AttributedString());
}

TEST(RTFStylePatchTest, DefaultPortsDescribeLucidaGrandeRedWithShadow) {
  auto driver = driverFor<RTF_StylePlugIn>();
  // Every other attribute keeps its plain value: no underline, strikethrough, stroke, kerning or skew.
  TextAttributes expected;
  expected.font = FontDescriptor{"LucidaGrande", 40, false, false};
  expected.foregroundColor = kRed;
  expected.underlineColor = expected.strokeColor = expected.strikethroughColor = kRed;
  expected.shadow = TextShadow{2, -2, 1, Color{0, 0, 0, 1}};
  EXPECT_EQ(styleOf(driver), expected);
  EXPECT_EQ(RTF_StylePlugIn::defaultStyleString(), driver.string("outputRTFStyle"));
  EXPECT_EQ(X::RTFString(driver.string("outputRTFStyle"))->utf8(), "Format String");
}

TEST(RTFStylePatchTest, EveryPortReachesTheStyleString) {
  auto driver = driverFor<RTF_StylePlugIn>();
  driver.set("inputFontName", "Times");
  driver.set("inputFontSize", 17.3);
  driver.set("inputShadowOpacity", 0.5);
  driver.set("inputShadowBlurRadius", 4.0);
  driver.set("inputShadowOffsetX", -3.0);
  driver.set("inputShadowOffsetY", 6.0);
  driver.set("inputFontColor", Color{0, 0.5, 1, 0.75});
  driver.set("inputUnderlineStyle", 3u);
  driver.set("inputUnderlinePattern", 3u);
  driver.set("inputUnderlineWordsOnly", true);
  driver.set("inputUnderlineColor", Color{0, 1, 0, 1});
  driver.set("inputKerning", 2.5);
  driver.set("inputStrokeWidth", -3.0);
  driver.set("inputStrokeColor", Color{0, 0, 1, 1});
  driver.set("inputStrikethroughStyle", 7u);
  driver.set("inputStrikethroughPattern", 2u);
  driver.set("inputStriketroughWordsOnly", true);
  driver.set("inputStrikethroughColor", Color{0.5, 0.5, 0.5, 1});
  driver.set("inputSkew", 0.2);
  driver.set("inputMaximumLineHeight", 50.0);
  driver.set("inputMinimumLineHeight", 10.0);
  driver.set("inputLineSpacing", 3.0);
  TextAttributes style = styleOf(driver);
  EXPECT_EQ(style.font.family, "Times");
  EXPECT_NEAR(style.font.pointSize, 17.3, 1e-3);
  EXPECT_EQ(*style.shadow, (TextShadow{-3, 6, 4, Color{0, 0, 0, 0.5}}));
  EXPECT_EQ(style.foregroundColor, (Color{0, 0.5, 1, 0.75}));
  EXPECT_EQ(style.underlineStyle, 0x8309);
  // An out-of-range style adds nothing; the pattern alone still counts.
  EXPECT_EQ(style.strikethroughStyle, 0x8200);
  EXPECT_EQ(style.underlineColor, (Color{0, 1, 0, 1}));
  EXPECT_EQ(style.strokeColor, (Color{0, 0, 1, 1}));
  EXPECT_EQ(style.strikethroughColor, (Color{0.5, 0.5, 0.5, 1}));
  EXPECT_EQ(style.kerning, 2.5);
  EXPECT_EQ(style.strokeWidth, -3);
  EXPECT_EQ(style.obliqueness, 0.2);
  EXPECT_EQ(style.paragraphStyle.maximumLineHeight, 50);
  EXPECT_EQ(style.paragraphStyle.minimumLineHeight, 10);
  EXPECT_EQ(style.paragraphStyle.lineSpacing, 3);
}

TEST(RTFStylePatchTest, ShadowOffMissingColoursAndFontLookUp) {
  auto driver = driverFor<RTF_StylePlugIn>();
  driver.set("inputUseShadow", false);
  driver.set("inputFontColor", Value());
  driver.set("inputStrokeColor", Value());
  driver.set("inputFontName", Value());
  TextAttributes style = styleOf(driver);
  EXPECT_FALSE(style.shadow);
  EXPECT_EQ(style.foregroundColor, kWhite);
  EXPECT_EQ(style.strokeColor, kWhite);
  EXPECT_EQ(style.underlineColor, kRed);
  EXPECT_EQ(style.font, (FontDescriptor{RTF_StylePlugIn::systemFontName(), 20}));

  // A given name that no font has (the empty one included) leaves the reader's default font.
  for (const char* name : {"", "NoSuchFontAnywhere"}) {
    driver.set("inputFontName", name);
    EXPECT_EQ(styleOf(driver).font, FontDescriptor{}) << name;
  }
}

TEST(RTFStylePatchTest, ThePortsAreDeclaredInOrder) {
  const PatchClass& c = RTF_StylePlugIn::patchClass();
  ASSERT_EQ(c.inputs.size(), 23u);
  EXPECT_EQ(c.inputs[17].key, "inputStriketroughWordsOnly");
  EXPECT_EQ(c.inputs[8].attributes.menuItems.size(), 5u);
  EXPECT_TRUE(c.inputs[8].attributes.defaultValue.isNone());
  EXPECT_FALSE(c.sortedPropertyPortKeys);
}

TEST(RTFStringPrinterTest, FillsTheTemplateWithStyledArguments) {
  auto driver = driverFor<RTF_String_PrinterPlugIn>();
  driver.set("argument_0", "Hello");
  driver.set("argument_1", "World");
  ASSERT_TRUE(driver.frame(0));
  const AttributedString text = rtfOutput(driver, "outputString");
  EXPECT_EQ(text.utf8(), "Hello World!");
  ASSERT_EQ(text.runs().size(), 1u);
  EXPECT_EQ(text.attributesAt(0), X::describedRTFAttributes(RTF_StylePlugIn::defaultStyleString()));
}

TEST(RTFStringPrinterTest, RtfArgumentsKeepTheirFormattingAndPlaceholdersInArgumentsTakeTheNext) {
  auto driver = driverFor<RTF_String_PrinterPlugIn>();
  driver.set("argument_0",
             "{\\rtf1{\\fonttbl\\f0 Courier;}{\\colortbl;\\red0\\green0\\blue255;}\\f0\\cf1 a%@b}");
  driver.set("argument_1", "X");
  ASSERT_TRUE(driver.frame(0));
  const AttributedString text = rtfOutput(driver, "outputString");
  EXPECT_EQ(text.utf8(), "aXb %@!");
  EXPECT_EQ(text.attributesAt(0).font.family, "Courier");
  EXPECT_EQ(text.attributesAt(0).foregroundColor, (Color{0, 0, 1, 1}));
  EXPECT_EQ(text.attributesAt(1).font.family, "LucidaGrande");
  EXPECT_EQ(text.attributesAt(3).font.family, "LucidaGrande");
  // An invalid style leaves plain text unstyled; surplus placeholders stay.
  driver.setSetting("formatString", "%@ and %@ and %@");
  driver.set("inputRTFStyle", "no style");
  driver.set("argument_0", "one");
  ASSERT_TRUE(driver.frame(1));
  EXPECT_EQ(X::RTFString(driver.string("outputString"))->attributesAt(0), TextAttributes{});
}

TEST(RTFStringPrinterTest, TheTemplateDecidesTheArgumentPorts) {
  auto driver = driverFor<RTF_String_PrinterPlugIn>();
  auto& printer = static_cast<RTF_String_PrinterPlugIn&>(driver.patch());
  EXPECT_EQ(RTF_String_PrinterPlugIn::patchClass().plugInKeys, std::vector<std::string>{"formatString"});
  driver.setSetting("formatString", "%@-%@-%@");
  ASSERT_NE(printer.findInputPort("argument_2"), nullptr);
  EXPECT_EQ(printer.findInputPort("argument_2")->description.attributes.name, "Argument #3");
  driver.set("argument_0", "kept");
  driver.setSetting("formatString", "<%@>");
  EXPECT_EQ(printer.argumentCount(), 1u);
  EXPECT_EQ(printer.findInputPort("argument_1"), nullptr);
  EXPECT_EQ(printer.findInputPort("argument_2"), nullptr);
  EXPECT_EQ(printer.findInputPort("argument_0")->value, Value("kept"));
  EXPECT_EQ(printer.serializedValueForKey("formatString"), "<%@>");
  ASSERT_TRUE(driver.frame(0));
  EXPECT_EQ(X::RTFString(driver.string("outputString"))->utf8(), "<kept>");

  driver.setSetting("formatString", "no placeholders");
  EXPECT_EQ(printer.inputPorts().size(), 1u);
  ASSERT_TRUE(driver.frame(1));
  EXPECT_EQ(X::RTFString(driver.string("outputString"))->utf8(), "no placeholders");
  driver.setSetting("formatString", "");
  ASSERT_TRUE(driver.frame(2));
  EXPECT_EQ(driver.string("outputString"), "");

  int count = -4;
  EXPECT_TRUE(RTF_String_PrinterPlugIn::validateArgumentCount(count));
  EXPECT_EQ(count, 0);
}

const char* kFiveCharacters = "{\\rtf1{\\fonttbl\\f0 Times;\\f1 Courier;}\\f0 abc\\f1 de}";

TEST(RTFStringUtilitiesTest, CheckerAndPlainText) {
  auto checker = driverFor<RTF_String_CheckerPlugIn>();
  auto plain = driverFor<RTF_String_to_Plain_TextPlugIn>();
  for (auto [input, isRtf, text] : {std::tuple{"", false, ""}, std::tuple{"Hello", false, "Hello"},
                                    std::tuple{kFiveCharacters, true, "abcde"}}) {
    checker.set("inputString", input);
    plain.set("inputRTFString", input);
    ASSERT_TRUE(checker.frame(0));
    ASSERT_TRUE(plain.frame(0));
    EXPECT_EQ(checker.boolean("outputIsRTFString"), isRtf) << input;
    EXPECT_EQ(plain.string("outputString"), text);
    EXPECT_EQ(plain.boolean("outputDidConvert"), isRtf);
  }
}

TEST(RTFStringUtilitiesTest, LengthInItsThreeModes) {
  auto driver = driverFor<RTF_String_LengthPlugIn>();
  const auto length = [&](const char* input, std::uint32_t mode) {
    driver.set("inputString", input);
    driver.set("inputMode", mode);
    EXPECT_TRUE(driver.frame(0));
    return driver.output("outputLength").indexValue();
  };
  EXPECT_EQ(length(kFiveCharacters, 2), 5u);
  EXPECT_EQ(length(kFiveCharacters, 0), std::string(kFiveCharacters).size());
  EXPECT_EQ(length(kFiveCharacters, 1), 5u);
  EXPECT_EQ(length("h\xC3\xA9llo \xF0\x9F\x92\xA9", 2), 8u);
  EXPECT_EQ(length("plain", 1), 0u);
  EXPECT_EQ(length("other", 9), 0u);  // keeps the previous value
  EXPECT_EQ(length("other", 0), 5u);
  EXPECT_EQ(length("xy", 3), 5u);
}

TEST(RTFStringUtilitiesTest, SubrangeKeepsFormattingAndCutsAtTheEnd) {
  auto driver = driverFor<RTF_String_SubrangePlugIn>();
  const auto subrange = [&](const char* input, std::uint32_t index, std::uint32_t length) {
    driver.set("inputRTFString", input);
    driver.set("inputIndex", index);
    driver.set("inputLength", length);
    EXPECT_TRUE(driver.frame(0));
    return driver.string("outputRTFString");
  };
  auto tail = X::RTFString(subrange(kFiveCharacters, 3, 100));
  ASSERT_TRUE(tail);
  EXPECT_EQ(tail->utf8(), "de");
  EXPECT_EQ(tail->attributesAt(0).font.family, "Courier");
  auto middle = X::RTFString(subrange(kFiveCharacters, 2, 2));
  ASSERT_TRUE(middle);
  EXPECT_EQ(middle->runs().size(), 2u);
  EXPECT_EQ(X::RTFString(subrange(kFiveCharacters, 5, 1))->utf8(), "");
  EXPECT_EQ(subrange(kFiveCharacters, 6, 1), "");
  EXPECT_EQ(subrange("plain text", 0, 3), "");
}

TEST(RTFStringUtilitiesTest, WithStringAppliesTheStyle) {
  auto driver = driverFor<RTF_String_With_StringPlugIn>();
  ASSERT_TRUE(driver.frame(0));
  AttributedString text = rtfOutput(driver, "outputRTFString");
  EXPECT_EQ(text.utf8(), "Hello World!");
  EXPECT_EQ(text.attributesAt(0).foregroundColor, kRed);
  driver.set("inputRTFStyle", "");
  driver.set("inputString", "caf\xC3\xA9");
  ASSERT_TRUE(driver.frame(1));
  text = rtfOutput(driver, "outputRTFString");
  EXPECT_EQ(text.utf8(), "caf\xC3\xA9");
  EXPECT_EQ(text.attributesAt(0), TextAttributes{});
}

TEST(RichTextPatchesTest, EveryPatchIsRegistered) {
  PatchRegistry registry;
  registerRichTextPatches(registry);
  for (const char* name :
       {"RTF_StylePlugIn", "RTF_String_PrinterPlugIn", "RTF_String_CheckerPlugIn", "RTF_String_LengthPlugIn",
        "RTF_String_SubrangePlugIn", "RTF_String_With_StringPlugIn", "RTF_String_to_Plain_TextPlugIn",
        "Image_With_RTF_StringPlugIn", "RTF_File_ReaderPlugIn", "RTF_File_to_ImagePlugIn"}) {
    ASSERT_NE(registry.create(name), nullptr) << name;
  }
}

}  // namespace
}  // namespace qva
