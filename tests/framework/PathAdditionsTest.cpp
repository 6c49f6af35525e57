#include <gtest/gtest.h>

#include "framework/PathAdditions.h"
#include "framework/PercentEncoding.h"
#include "framework/ValueTransformers.h"

namespace qva {
namespace {

TEST(PathAdditions, RelativePathWalksUpFromTheBaseFolder) {
  EXPECT_EQ(relativePathToPath("/a/b/c/file.psd", "/a/b/x/doc.qtz"), "../c/file.psd");
  EXPECT_EQ(relativePathToPath("/a/b", "/a/b"), "");
  EXPECT_EQ(relativePathToPath("/a/b/c", "/a"), "b/c/");
  EXPECT_EQ(relativePathToPath("/a/file.psd", "/a/b/"), "../../file.psd")
      << "a trailing slash on the base adds one more step up";
  EXPECT_EQ(relativePathToPath("/data/v1.2", "/data/x/doc.qtz"), "../v1.2")
      << "a folder with a dot counts as a file name";
}

TEST(PathAdditions, FileNamesAreLastComponentsWithADot) {
  EXPECT_TRUE(lastPathComponentIsFilename("/data/v1.2"));
  EXPECT_TRUE(lastPathComponentIsFilename("/data/file.psd/"));
  EXPECT_FALSE(lastPathComponentIsFilename("/data.d/folder"));
  EXPECT_FALSE(lastPathComponentIsFilename("/"));
  EXPECT_EQ(deletingLastPathComponent("/a"), "/");
  EXPECT_EQ(deletingLastPathComponent("a"), "");
}

TEST(ValueTransformers, CountPlaceholdersAndConvertFileURLs) {
  EXPECT_EQ(FormatStringToArgumentCount::transformedValue("x %@ y %@"), 2);
  EXPECT_EQ(FormatStringToArgumentCount::transformedValue(""), 0);
  EXPECT_EQ(FormatStringToArgumentCount::transformedValue(std::nullopt), std::nullopt);
  const auto url = StringToFileURL::transformedValue("/tmp/a file ü.psd");
  EXPECT_EQ(url, "file:///tmp/a%20file%20%C3%BC.psd");
  EXPECT_EQ(StringToFileURL::reverseTransformedValue(url), "/tmp/a file ü.psd");
  EXPECT_EQ(StringToFileURL::reverseTransformedValue("http://x/y"), std::nullopt);
}

TEST(PercentEncoding, MalformedEscapesStayAsTheyAre) {
  EXPECT_EQ(percentDecode("100%"), "100%");
  EXPECT_EQ(percentDecode("%4"), "%4");
  EXPECT_EQ(percentDecode("%zz%41"), "%zzA");
  EXPECT_EQ(percentEncode("a b/c", "/"), "a%20b/c");
}

}  // namespace
}  // namespace qva
