#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "framework/Structure.h"
#include "patches/data/QVATextFileReaderPlugIn.h"
#include "support/PatchExecution.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

using namespace std::string_literals;

TEST(TextFileSplit, TrailingSeparatorAddsNoPiece) {
  using Lines = std::vector<std::string>;
  EXPECT_EQ(QVATextFileReaderPlugIn::splitText("one\ntwo\n", ""), (Lines{"one", "two"}));
  EXPECT_EQ(QVATextFileReaderPlugIn::splitText("one\n\ntwo", ""), (Lines{"one", "", "two"}));
  EXPECT_EQ(QVATextFileReaderPlugIn::splitText("\n", ""), (Lines{""}));
  EXPECT_EQ(QVATextFileReaderPlugIn::splitText("", ""), (Lines{""}));
  EXPECT_EQ(QVATextFileReaderPlugIn::splitText("a\r\nb\r\n", ""), (Lines{"a\r", "b\r"}));
  EXPECT_EQ(QVATextFileReaderPlugIn::splitText("a, b,, c, ", ", "), (Lines{"a", "b,", "c"}));
  EXPECT_EQ(QVATextFileReaderPlugIn::splitText("a\n\n", ""), (Lines{"a", ""}));
}

class TextFileReaderTest : public PatchTest<QVATextFileReaderPlugIn> {
 protected:
  void SetUp() override { context_.setCompositionPath((folder_ / "show.qvc").string()); }

  void write(const std::string& name, const std::string& bytes) {
    std::ofstream(folder_ / name, std::ios::binary | std::ios::trunc) << bytes;
  }
  std::optional<std::vector<std::string>> run() {
    executeOnce(patch_, context_);
    const Value& value = patch_.findOutputPort("outputLines")->value;
    if (value.isNone()) {
      return std::nullopt;
    }
    std::vector<std::string> lines;
    for (const Structure::Member& member : value.structureValue()->members()) {
      lines.push_back(member.value.stringValue());
    }
    return lines;
  }

  TemporaryFolder folder_{"textfile"};
};

using Lines = std::vector<std::string>;

TEST_F(TextFileReaderTest, PollModeReloadsWhenTheFileChanges) {
  write("list é.txt", "one\ntwo\n");
  patch_.setInputValue("inputPath", Value("list é.txt"));
  EXPECT_EQ(run(), (Lines{"one", "two"}));
  write("list é.txt", "three\n");
  EXPECT_EQ(run(), (Lines{"three"}));
  // Same contents, a new modification date: read again (seen when the file is changed behind our back).
  std::ofstream(folder_ / "list é.txt", std::ios::binary | std::ios::trunc) << "four\n";
  const auto stamp = std::filesystem::last_write_time(folder_ / "list é.txt");
  std::filesystem::last_write_time(folder_ / "list é.txt", stamp - std::chrono::hours(1));
  EXPECT_EQ(run(), (Lines{"four"}));
  std::filesystem::last_write_time(folder_ / "list é.txt", stamp);
  EXPECT_EQ(run(), (Lines{"four"}));

  // Polling decides by the file alone: a new separator applies once the file changes.
  patch_.setInputValue("inputSeparator", Value("o"));
  EXPECT_EQ(run(), (Lines{"four"}));
  write("list é.txt", "two\n");
  EXPECT_EQ(run(), (Lines{"tw", "\n"}));
}

TEST_F(TextFileReaderTest, FlagModeReadsOnlyWhileReloadIsOn) {
  write("flag.txt", "a\n");
  patch_.setInputValue("inputLoadMode", Value(std::uint32_t{1}));
  patch_.setInputValue("inputPath", Value((folder_ / "flag.txt").string()));
  EXPECT_EQ(run(), (Lines{"a"}));
  write("flag.txt", "b\nbb\n");
  EXPECT_EQ(run(), (Lines{"a"}));
  patch_.setInputValue("inputReload", Value(true));
  EXPECT_EQ(run(), (Lines{"b", "bb"}));
  write("flag.txt", "c\n");
  EXPECT_EQ(run(), (Lines{"c"}));  // a level, not an edge
  patch_.setInputValue("inputReload", Value(false));
  write("flag.txt", "d\n");
  EXPECT_EQ(run(), (Lines{"c"}));
  // Without polling, a new separator reads the file again at once.
  patch_.setInputValue("inputSeparator", Value("\n\n"));
  EXPECT_EQ(run(), (Lines{"d\n"}));
}

TEST_F(TextFileReaderTest, MissingFilesAreRetriedAndEncodingsDetected) {
  patch_.setInputValue("inputPath", Value("later.txt"));
  EXPECT_EQ(run(), std::nullopt);
  EXPECT_EQ(run(), std::nullopt);
  write("later.txt", "\xFF\xFEh\0i\0\n\0"s);
  EXPECT_EQ(run(), (Lines{"hi"}));
  write("later.txt", "\xEF\xBB\xBFok\r\nyes");
  EXPECT_EQ(run(), (Lines{"ok\r", "yes"}));
  write("later.txt", "caf\xe9\n");
  EXPECT_EQ(run(), (Lines{"caf\u00e9"}));
  std::filesystem::remove(folder_ / "later.txt");
  EXPECT_EQ(run(), std::nullopt);

  patch_.setInputValue("inputPath", Value(""));
  EXPECT_EQ(run(), std::nullopt);
  patch_.setInputValue("inputPath", Value(folder_.path().string()));
  EXPECT_EQ(run(), std::nullopt);
}

}  // namespace
}  // namespace qva
