#include <gtest/gtest.h>

#include "foundation/encodings/StringEncodings.h"

namespace qva {
namespace {

using namespace std::string_literals;

TEST(StringEncodings, EveryOfferedEncodingIsFoundByEitherNameAndDecodes) {
  const std::vector<StringEncoding>& encodings = StringEncodings::available();
  ASSERT_GT(encodings.size(), 30u);
  EXPECT_EQ(StringEncodings::localizedNames().size(), encodings.size());
  for (std::size_t i = 0; i < encodings.size(); ++i) {
    SCOPED_TRACE(encodings[i].localizedName);
    EXPECT_EQ(StringEncodings::localizedNames()[i], encodings[i].localizedName);
    EXPECT_EQ(StringEncodings::indexOfName(encodings[i].localizedName), i);
    EXPECT_EQ(StringEncodings::indexOfName(encodings[i].converterName), i);
    EXPECT_TRUE(StringEncodings::decode("", encodings[i].converterName));
  }
  EXPECT_FALSE(StringEncodings::indexOfName("utf-8-but-not-really"));
  EXPECT_FALSE(StringEncodings::indexOfName(""));
}

TEST(StringEncodings, MenuNamesArePeoplesNamesInAFixedOrder) {
  const std::vector<std::string>& names = StringEncodings::localizedNames();
  ASSERT_FALSE(names.empty());
  EXPECT_EQ(names.front(), "Unicode (UTF-8)");
  // Aliases and the usual spellings of a converter lead to its entry.
  EXPECT_EQ(StringEncodings::indexOfName("cp1252"),
            StringEncodings::indexOfName("Western (Windows Latin 1)"));
  EXPECT_EQ(StringEncodings::indexOfName("sjis"), StringEncodings::indexOfName("Japanese (Shift JIS)"));
  EXPECT_EQ(StringEncodings::indexOfName("utf16"), StringEncodings::indexOfName("Unicode (UTF-16)"));
  const auto western = StringEncodings::indexOfName("Western (Windows Latin 1)");
  const auto japanese = StringEncodings::indexOfName("Japanese (Shift JIS)");
  ASSERT_TRUE(western && japanese);
  EXPECT_LT(*western, *japanese);
  EXPECT_EQ(StringEncodings::decode("\x93\x80", StringEncodings::available()[*western].converterName),
            "\u201c\u20ac");
  EXPECT_EQ(StringEncodings::decode("\x93\xfa", StringEncodings::available()[*japanese].converterName),
            "\u65e5");
  for (const std::string& name : names) {
    EXPECT_EQ(name.find("ibm-"), std::string::npos) << name;
    EXPECT_NE(name.find(" ("), std::string::npos) << name;
  }
}

TEST(StringEncodings, ByteOrderMarksNameTheirEncoding) {
  EXPECT_EQ(StringEncodings::byteOrderMark("\xEF\xBB\xBFx")->encoding, "UTF-8");
  EXPECT_EQ(StringEncodings::byteOrderMark("\xEF\xBB\xBFx")->length, 3u);
  EXPECT_EQ(StringEncodings::byteOrderMark("\xFF\xFEx\0"s)->encoding, "UTF-16LE");
  EXPECT_EQ(StringEncodings::byteOrderMark("\xFE\xFF\0x"s)->encoding, "UTF-16BE");
  EXPECT_FALSE(StringEncodings::byteOrderMark("\xEF\xBBx"));
  EXPECT_FALSE(StringEncodings::byteOrderMark("x\xFF\xFE"));
  EXPECT_FALSE(StringEncodings::byteOrderMark(""));
}

TEST(StringEncodings, DecodingIsStrict) {
  EXPECT_EQ(StringEncodings::decode("caf\xc3\xa9", "UTF-8"), "caf\u00e9");
  EXPECT_EQ(StringEncodings::decode("caf\xe9", "ISO-8859-1"), "caf\u00e9");
  EXPECT_EQ(StringEncodings::decode("caf\xe9", "UTF-8"), std::nullopt);
  EXPECT_EQ(StringEncodings::decode("\xc3", "UTF-8"), std::nullopt);  // truncated sequence
  EXPECT_EQ(StringEncodings::decode("x", "no-such-encoding"), std::nullopt);
  EXPECT_EQ(StringEncodings::decode("", "UTF-8"), "");
  EXPECT_EQ(StringEncodings::decode("a\0b"s, "UTF-8"), "a\0b"s);
}

TEST(StringEncodings, DetectionHonoursByteOrderMarksThenUtf8ThenLatin) {
  EXPECT_EQ(StringEncodings::decodeDetected("\xEF\xBB\xBFone\n"), "one\n");
  EXPECT_EQ(StringEncodings::decodeDetected("\xFF\xFEo\0n\0e\0\n\0"s), "one\n");
  EXPECT_EQ(StringEncodings::decodeDetected("\xFE\xFF\0o\0\xe9"s), "o\u00e9");
  EXPECT_EQ(StringEncodings::decodeDetected("caf\xc3\xa9"), "caf\u00e9");
  EXPECT_EQ(StringEncodings::decodeDetected("caf\xe9 \x93q\x94"), "caf\u00e9 \u201cq\u201d");
  EXPECT_EQ(StringEncodings::decodeDetected("\x81"), "\u0081");
  EXPECT_EQ(StringEncodings::decodeDetected(""), "");
  // An odd byte count after a UTF-16 mark cannot be text.
  EXPECT_EQ(StringEncodings::decodeDetected("\xFF\xFEo\0n"s), std::nullopt);
}

}  // namespace
}  // namespace qva
