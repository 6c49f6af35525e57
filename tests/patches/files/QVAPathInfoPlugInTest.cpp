#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <limits>

#include "patches/files/QVAPathInfoPlugIn.h"
#include "support/PatchExecution.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

class PathInfoTest : public PatchTest<QVAPathInfoPlugIn> {
 protected:
  void SetUp() override { std::filesystem::create_directories(folder_ / "a folder"); }

  void run(const std::string& path, double time = 0) {
    patch_.setInputValue("inputPath", Value(path));
    executeOnce(patch_, context_, time);
  }
  Value output(const std::string& key) const { return patch_.findOutputPort(key)->value; }
  void expectReset() const {
    for (const char* key : {"outputIsDirectory", "outputIsReadable", "outputIsWritable", "outputIsExecutable",
                            "outputIsSymbolicLink"}) {
      EXPECT_EQ(output(key), Value(false)) << key;
    }
    EXPECT_EQ(output("outputFullPath"), Value(""));
    EXPECT_EQ(output("outputOwner"), Value(""));
    EXPECT_EQ(output("outputCreationDate"), Value(0.0));
    EXPECT_EQ(output("outputModificationDate"), Value(0.0));
    EXPECT_EQ(output("outputSize"), Value(std::uint32_t{0}));
  }

  TemporaryFolder folder_{"pathinfo"};
};

TEST_F(PathInfoTest, ReportsAFilesKindRightsDatesOwnerAndSize) {
  const std::string file = (folder_ / "a folder" / "nöte.txt").string();
  std::ofstream(file) << "12345";
  ::chmod(file.c_str(), 0644);
  run(file);
  EXPECT_EQ(output("outputIsDirectory"), Value(false));
  EXPECT_EQ(output("outputIsReadable"), Value(true));
  EXPECT_EQ(output("outputIsExecutable"), Value(false));
  EXPECT_EQ(output("outputIsSymbolicLink"), Value(false));
  EXPECT_EQ(output("outputFullPath"), Value(file));
  EXPECT_EQ(output("outputSize"), Value(std::uint32_t{5}));
  struct stat info {};
  ASSERT_EQ(::stat(file.c_str(), &info), 0);
  EXPECT_NEAR(output("outputModificationDate").numberValue(),
              static_cast<double>(info.st_mtim.tv_sec) - 978307200.0 + info.st_mtim.tv_nsec / 1e9, 1e-3);
  const double created = output("outputCreationDate").numberValue();
  EXPECT_TRUE(created == 0 || std::abs(created - output("outputModificationDate").numberValue()) < 5)
      << created;
  const passwd* me = ::getpwuid(::getuid());
  ASSERT_NE(me, nullptr);
  EXPECT_EQ(output("outputOwner"), Value(me->pw_name));
  EXPECT_FALSE(output("outputGroup").stringValue().empty());
  EXPECT_TRUE(hostLog_.empty());

  std::filesystem::remove(file);
  run(file);
  expectReset();
}

TEST_F(PathInfoTest, LinksCountAsTheirTargetsKindAndDanglingLinksAsMissing) {
  const std::filesystem::path link = folder_ / "link to folder";
  std::filesystem::create_directory_symlink(folder_ / "a folder", link);
  run(link.string());
  EXPECT_EQ(output("outputIsDirectory"), Value(true));
  EXPECT_EQ(output("outputIsSymbolicLink"), Value(true));
  EXPECT_EQ(output("outputIsExecutable"), Value(true));

  std::filesystem::create_symlink(folder_ / "nowhere", folder_ / "dangling");
  run((folder_ / "dangling").string());
  expectReset();
  run("~");  // not expanded for the checks
  expectReset();
  run("");
  expectReset();
}

TEST_F(PathInfoTest, ExaminesThePathAtMostTwiceASecond) {
  run(folder_.path().string(), 10);
  patch_.updateInputChangeFlags();
  EXPECT_EQ(patch_.executionTimeForContext(context_, 10.4, Arguments()), std::numeric_limits<float>::max());
  EXPECT_EQ(patch_.executionTimeForContext(context_, 10.6, Arguments()), 10.6);
}

}  // namespace
}  // namespace qva
