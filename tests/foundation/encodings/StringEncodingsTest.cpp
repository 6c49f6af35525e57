#include <gtest/gtest.h>

#include "foundation/encodings/StringEncodings.h"

namespace qva {
namespace {

using namespace std::string_literals;

TEST(StringEncodings, NamesAreUniqueAndFindable) {
  const std::vector<std::string>& names = StringEncodings::names();
  ASSERT_FALSE(names.empty());
  for (std::size_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ(StringEncodings::indexOfName(names[i]), i) << names[i];
  }
  EXPECT_FALSE(StringEncodings::indexOfName("utf-8-but-not-really"));
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
