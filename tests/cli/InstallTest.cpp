#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "support/TemporaryFolder.h"

namespace qva {
namespace {

struct ShellResult {
  int status = -1;
  std::string errors;
};

std::string fileText(const std::filesystem::path& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// Runs a shell command in a folder with FONTCONFIG_FILE unset, as on a machine where nobody set it, and
// keeps what it wrote to standard error.
ShellResult runIn(const std::filesystem::path& folder, const std::string& command) {
  const std::filesystem::path errors = folder / "stderr.txt";
  const std::string line = "cd '" + folder.string() + "' && env -u FONTCONFIG_FILE " + command +
                           " >/dev/null 2>'" + errors.string() + "'";
  const int status = std::system(line.c_str());
  ShellResult result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, fileText(errors)};
  std::filesystem::remove(errors);
  return result;
}

class QvaInstall : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(work_);
    std::filesystem::copy_file(std::string(QVA_SOURCE_DIR) + "/examples/demo.qvc", work_ / "demo.qvc");
  }

  const TemporaryFolder root_{"install-test"};
  const std::filesystem::path prefix_ = root_ / "prefix";
  const std::filesystem::path work_ = root_ / "work";
};

// An installed qva, started from a folder outside the source tree, renders the demo with the fonts
// configuration installed beside it.
TEST_F(QvaInstall, AnInstalledQvaRendersTheDemoWithItsOwnData) {
  const ShellResult install = runIn(work_, std::string(QVA_CMAKE_COMMAND) + " --install '" + QVA_BINARY_DIR +
                                               "' --prefix '" + prefix_.string() + "'");
  ASSERT_EQ(install.status, 0) << install.errors;
  ASSERT_TRUE(std::filesystem::exists(prefix_ / "bin/qva"));
  ASSERT_TRUE(std::filesystem::exists(prefix_ / "share/qva/fonts/fonts.conf"));

  const std::string qva = "'" + (prefix_ / "bin/qva").string() + "'";
  const ShellResult render = runIn(work_, qva + " render demo.qvc --frames 3 -o 'f_%05d.png'");
  EXPECT_EQ(render.errors.find("Fontconfig"), std::string::npos) << render.errors;
  if (render.status != 0) {
    GTEST_SKIP() << "qva render failed here (no OpenGL?): " << render.errors;
  }
  for (const char* frame : {"f_00000.png", "f_00001.png", "f_00002.png"}) {
    EXPECT_GT(std::filesystem::file_size(work_ / frame), 0u) << frame;
  }

  // The configuration read is the installed one: spoilt, fontconfig says so.
  std::ofstream(prefix_ / "share/qva/fonts/fonts.conf") << "<fontconfig><dir>";
  const ShellResult spoilt = runIn(work_, qva + " render demo.qvc --frames 1 -o 'g_%05d.png'");
  EXPECT_NE(spoilt.errors.find("share/qva/fonts/fonts.conf"), std::string::npos) << spoilt.errors;
}

// The qva of the build tree finds the copy of the data the build keeps beside it.
TEST_F(QvaInstall, TheBuiltQvaFindsItsDataInTheBuildTree) {
  const ShellResult render = runIn(
      work_, "'" + std::string(QVA_BINARY_DIR) + "/src/cli/qva' render demo.qvc --frames 1 -o 'f_%05d.png'");
  EXPECT_EQ(render.errors.find("Fontconfig"), std::string::npos) << render.errors;
  EXPECT_EQ(fileText(std::string(QVA_BINARY_DIR) + "/src/cli/../share/qva/fonts/fonts.conf"),
            fileText(std::string(QVA_SOURCE_DIR) + "/data/fonts/fonts.conf"));
}

}  // namespace
}  // namespace qva
