#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "framework/Structure.h"
#include "patches/files/QVADirectoryScannerPlugIn.h"
#include "support/PatchExecution.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

using Strings = std::vector<std::string>;

TEST(DirectoryScannerExtensions, SplitAtCommasTrimmedAndWithoutEmptyPieces) {
  EXPECT_EQ(QVADirectoryScannerPlugIn::extensionList("png,,  jpg "), (Strings{"png", "jpg"}));
  EXPECT_EQ(QVADirectoryScannerPlugIn::extensionList("\tpng\t, tar.gz,"), (Strings{"png", "tar.gz"}));
  EXPECT_EQ(QVADirectoryScannerPlugIn::extensionList(""), Strings{});
  EXPECT_EQ(QVADirectoryScannerPlugIn::extensionList(" , \t ,"), Strings{});
  EXPECT_EQ(QVADirectoryScannerPlugIn::extensionList("a b"), Strings{"a b"});
}

class DirectoryScannerTest : public PatchTest<QVADirectoryScannerPlugIn> {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(folder_ / "slides é");
    context_.setCompositionPath((folder_ / "show.qvc").string());
  }

  void touch(const std::string& name) { std::ofstream(folder_ / "slides é" / name) << "x"; }
  Strings run() {
    executeOnce(patch_, context_);
    Strings files;
    for (const Structure::Member& member :
         patch_.findOutputPort("outputFileList")->value.structureValue()->members()) {
      files.push_back(member.value.stringValue());
    }
    std::sort(files.begin(), files.end());
    return files;
  }
  std::string path(const std::string& name) const { return (folder_ / "slides é" / name).string(); }

  TemporaryFolder folder_{"scanner"};
};

TEST_F(DirectoryScannerTest, ListsMatchingNamesOfOneLevel) {
  for (const char* name : {"a.png", "b c.jpg", "IMAGE.PNG", "a.tar.gz", "noextension", ".hidden.png",
                           "clip.mov", "trailing.", "ü.tiff"}) {
    touch(name);
  }
  std::filesystem::create_directories(folder_ / "slides é" / "folder.png" / "inner");
  std::ofstream(folder_ / "slides é" / "folder.png" / "deep.png") << "x";
  patch_.setInputValue("inputDirectoryPath", Value("slides é/"));
  EXPECT_EQ(run(), (Strings{path("a.png"), path("b c.jpg"), path("folder.png"), path("ü.tiff")}));

  patch_.setInputValue("inputFileExtensions", Value("gz, tar.gz,mov"));
  EXPECT_EQ(run(), (Strings{path("a.tar.gz"), path("clip.mov")}));
}

TEST_F(DirectoryScannerTest, RescansOnRisingScanSignalOrInputChange) {
  touch("one.png");
  patch_.setInputValue("inputDirectoryPath", Value((folder_ / "slides é").string()));
  patch_.setInputValue("inputScan", Value(true));
  EXPECT_EQ(run(), (Strings{path("one.png")}));
  touch("two.png");
  EXPECT_EQ(run(), (Strings{path("one.png")}));  // held true: no new scan
  patch_.setInputValue("inputScan", Value(false));
  EXPECT_EQ(run(), (Strings{path("one.png")}));
  patch_.setInputValue("inputScan", Value(true));
  EXPECT_EQ(run(), (Strings{path("one.png"), path("two.png")}));
  touch("three.png");
  patch_.setInputValue("inputFileExtensions", Value("png"));
  EXPECT_EQ(run(), (Strings{path("one.png"), path("three.png"), path("two.png")}));

  patch_.setInputValue("inputDirectoryPath", Value((folder_ / "missing").string()));
  EXPECT_EQ(run(), Strings{});
  patch_.setInputValue("inputDirectoryPath", Value(path("one.png")));
  EXPECT_EQ(run(), Strings{});
}

TEST_F(DirectoryScannerTest, AHundredThousandEntriesInOneScan) {
  // Hard links to two files outside the folder: making 100,000 files of their own costs the file system
  // far more than the scan, and one file takes at most 65,000 links.
  std::ofstream(folder_ / "picture") << "x";
  std::ofstream(folder_ / "text") << "x";
  const std::string folder = (folder_ / "slides é").string() + "/";
  for (int index = 0; index < 100000; ++index) {
    const bool even = index % 2 == 0;
    const std::string name = folder + std::to_string(index) + (even ? ".png" : ".txt");
    ASSERT_EQ(::link((folder_ / (even ? "picture" : "text")).c_str(), name.c_str()), 0) << name;
  }
  patch_.setInputValue("inputDirectoryPath", Value(folder));
  patch_.setInputValue("inputFileExtensions", Value("png"));
  const Strings files = run();
  ASSERT_EQ(files.size(), 50000u);
  EXPECT_EQ(files.front(), path("0.png"));
  EXPECT_EQ(files.back(), path("99998.png"));
  EXPECT_EQ(std::adjacent_find(files.begin(), files.end()), files.end());
}

}  // namespace
}  // namespace qva
