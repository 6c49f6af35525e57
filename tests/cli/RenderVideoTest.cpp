#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "support/TemporaryFolder.h"
#include "support/TestMovies.h"

namespace qva {
namespace {

struct Render {
  int status = -1;
  // Raw BGRA frames on standard output, or the complaint on standard error.
  std::string output;
};

// `qva render ARGUMENTS -o -`.
Render render(const std::string& arguments, const std::filesystem::path& errors) {
  const std::string command =
      std::string(QVA_BINARY_DIR) + "/src/cli/qva render " + arguments + " -o - 2>" + errors.string();
  Render result;
  FILE* pipe = popen(command.c_str(), "r");
  std::array<char, 65536> buffer{};
  while (const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
    result.output.append(buffer.data(), got);
  }
  result.status = WEXITSTATUS(pclose(pipe));
  if (result.status != 0) {
    std::ifstream file(errors);
    result.output.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return result;
}

class RenderVideoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!TestMovies::available()) {
      GTEST_SKIP() << "no ffmpeg command";
    }
    ASSERT_EQ(TestMovies::make(folder_ / "clip.mp4", {20, "25", "-c:v libx264 -pix_fmt yuv420p -g 8"}), "");
    // Graphics of another size and rate, and nothing drawn over the clip.
    std::ofstream(folder_ / "empty.qvc") << R"({"format": "qva-composition/1", "canvas": {"width": 100,
        "height": 100}, "fps": 10, "duration": 1, "background": [0, 0, 0, 0], "patches": []})";
  }

  // The frame indices the clip shows in each raw frame of its own size.
  static std::vector<int> shownIndices(const std::string& frames) {
    const std::size_t frameBytes = std::size_t{TestMovies::kWidth} * TestMovies::kHeight * 4;
    std::vector<int> indices;
    for (std::size_t offset = 0; offset + frameBytes <= frames.size(); offset += frameBytes) {
      indices.push_back(TestMovies::indexOf(reinterpret_cast<const std::uint8_t*>(frames.data() + offset),
                                            std::size_t{TestMovies::kWidth} * 4));
    }
    return indices;
  }

  TemporaryFolder folder_{"render-video"};
};

TEST_F(RenderVideoTest, TheClipSetsSizeRateAndLengthUnderTheComposition) {
  const Render whole =
      render((folder_ / "empty.qvc").string() + " --video " + (folder_ / "clip.mp4").string(),
             folder_ / "errors.txt");
  if (whole.status != 0 && whole.output.find("OpenGL") != std::string::npos) {
    GTEST_SKIP() << whole.output;
  }
  ASSERT_EQ(whole.status, 0) << whole.output;
  std::vector<int> expected(20);
  for (int i = 0; i < 20; ++i) {
    expected[i] = i;
  }
  EXPECT_EQ(shownIndices(whole.output), expected);
  EXPECT_EQ(whole.output.size() % (std::size_t{TestMovies::kWidth} * TestMovies::kHeight * 4), 0U);

  // At twice the clip's rate each of its frames shows twice.
  const Render doubled = render(
      (folder_ / "empty.qvc").string() + " --fps 50 --frames 6 --video " + (folder_ / "clip.mp4").string(),
      folder_ / "errors.txt");
  ASSERT_EQ(doubled.status, 0) << doubled.output;
  EXPECT_EQ(shownIndices(doubled.output), (std::vector<int>{0, 0, 1, 1, 2, 2}));
}

TEST_F(RenderVideoTest, AClipThatCannotPlayIsNamed) {
  std::ofstream(folder_ / "notes.txt") << "no movie";
  for (const std::string name : {"missing.mp4", "notes.txt"}) {
    const Render result = render("--video " + (folder_ / name).string(), folder_ / "errors.txt");
    EXPECT_EQ(result.status, 2) << name;
    EXPECT_EQ(result.output.rfind("qva: --video " + (folder_ / name).string() + ": ", 0), 0U)
        << result.output;
  }
}

TEST_F(RenderVideoTest, TheSubtitledClipExampleRenders) {
  const Render result =
      render(std::string(QVA_SOURCE_DIR) + "/examples/subtitled-clip.qvc --frames 2", folder_ / "errors.txt");
  if (result.status != 0 && result.output.find("OpenGL") != std::string::npos) {
    GTEST_SKIP() << result.output;
  }
  ASSERT_EQ(result.status, 0) << result.output;
  EXPECT_EQ(result.output.size(), 2U * 640 * 360 * 4);
  // The movie covers the black background: its first frame is not black in the middle.
  const std::size_t middle = (180U * 640 + 320) * 4;
  EXPECT_GT(static_cast<unsigned char>(result.output[middle]) +
                static_cast<unsigned char>(result.output[middle + 1]) +
                static_cast<unsigned char>(result.output[middle + 2]),
            60);
}

}  // namespace
}  // namespace qva
