#include <gtest/gtest.h>

#include "foundation/rtf/RTFStringExtensions.h"

namespace qva {
namespace {

using X = RTFStringExtensions;

TEST(RTFStringExtensionsTest, ValidityEncodesInMacRomanByDefault) {
  EXPECT_FALSE(X::isValidRTF(""));
  EXPECT_FALSE(X::isValidRTF("Hello"));
  EXPECT_TRUE(X::isValidRTF("{\\rtf1 Hello}"));
  EXPECT_FALSE(X::isValidRTF("{\\rtf1 Hello"));
  // A character Mac OS Roman cannot hold makes the string invalid unless another encoding is asked for.
  EXPECT_FALSE(X::isValidRTF("{\\rtf1 \xE4\xB8\xAD}"));
  EXPECT_TRUE(X::isValidRTF("{\\rtf1 \xE4\xB8\xAD}", TextEncoding::utf8()));
  EXPECT_TRUE(X::isValidRTF("{\\rtf1 \xC3\xA9}"));
}

TEST(RTFStringExtensionsTest, RTFStringReadsTheBytesOfTheGivenEncoding) {
  EXPECT_FALSE(X::RTFString(""));
  EXPECT_FALSE(X::RTFString("plain"));
  EXPECT_EQ(X::RTFString("{\\rtf1\\mac caf\xC3\xA9}")->utf8(), "caf\xC3\xA9");
  EXPECT_EQ(X::RTFString("{\\rtf1\\ansi\\ansicpg65001 caf\xC3\xA9}", TextEncoding::utf8())->utf8(),
            "caf\xC3\xA9");
  // The validity test is always made in Mac OS Roman.
  EXPECT_FALSE(X::RTFString("{\\rtf1 \xE4\xB8\xAD}", TextEncoding::utf8()));
}

TEST(RTFStringExtensionsTest, DescribedAttributesComeFromTheFirstCharacterOnly) {
  auto attributes = X::describedRTFAttributes("{\\rtf1{\\fonttbl\\f0 Courier;}\\f0\\fs48\\b A\\b0\\fs20 B}");
  ASSERT_TRUE(attributes);
  EXPECT_EQ(attributes->font, (FontDescriptor{"Courier", 24, true, false}));
  EXPECT_FALSE(X::describedRTFAttributes(""));
  EXPECT_FALSE(X::describedRTFAttributes("not rtf"));
  EXPECT_FALSE(X::describedRTFAttributes("{\\rtf1 }"));  // no character to describe
}

TEST(RTFStringExtensionsTest, DescribedAttributesReadOnlyAsManyBytesAsCharacters) {
  // Two-byte UTF-8 text leaves the last byte of the document (its closing brace) unread.
  EXPECT_FALSE(X::describedRTFAttributes("{\\rtf1 {\\b \xC3\xA9}}"));
  EXPECT_TRUE(X::describedRTFAttributes("{\\rtf1 {\\b \xC3\xA9}}}", TextEncoding::utf8()));
  // In Mac OS Roman the byte and character counts agree.
  auto macRoman = X::describedRTFAttributes("{\\rtf1 {\\b \xC3\xA9}}", TextEncoding::macOSRoman());
  ASSERT_TRUE(macRoman);
  EXPECT_TRUE(macRoman->font.bold);
}

TEST(RTFStringExtensionsTest, RTFAsPlainStringIsTheDocumentAsText) {
  TextAttributes attributes;
  attributes.font = FontDescriptor{"LucidaGrande", 40};
  AttributedString text = AttributedString::fromUtf8("Format \xE2\x82\xAC", attributes);
  auto document = X::RTFAsPlainString(text);
  ASSERT_TRUE(document);
  EXPECT_EQ(document->rfind("{\\rtf1", 0), 0u);
  EXPECT_NE(document->find("\\u8364"), std::string::npos);
  EXPECT_EQ(X::RTFAsPlainString(text, TextEncoding::utf8()), document);
  EXPECT_EQ(X::RTFString(*document), text);
  EXPECT_EQ(X::describedRTFAttributes(*document), attributes);
  // Bytes that are no text in the encoding give nothing.
  EXPECT_FALSE(X::RTFAsPlainString(text, TextEncoding::utf16()));
}

}  // namespace
}  // namespace qva
