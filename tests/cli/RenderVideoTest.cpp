#include <gtest/gtest.h>

#include <fstream>
#include <numeric>
#include <string>
#include <vector>

#include "support/QvaProcess.h"
#include "support/TemporaryFolder.h"
#include "support/TestMovies.h"

namespace qva {
namespace {

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

  // `qva render COMPOSITION OPTIONS -o -`: raw BGRA frames on standard output.
  static QvaRun render(const std::filesystem::path& composition, const std::string& options) {
    return runQva("render " + composition.string() + " " + options + " -o -");
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
  const QvaRun whole = render(folder_ / "empty.qvc", "--video " + (folder_ / "clip.mp4").string());
  if (whole.status != 0 && whole.errors.find("OpenGL") != std::string::npos) {
    GTEST_SKIP() << whole.errors;
  }
  ASSERT_EQ(whole.status, 0) << whole.errors;
  std::vector<int> expected(20);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(shownIndices(whole.output), expected);
  EXPECT_EQ(whole.output.size() % (std::size_t{TestMovies::kWidth} * TestMovies::kHeight * 4), 0U);

  // At twice the clip's rate each of its frames shows twice.
  const QvaRun doubled =
      render(folder_ / "empty.qvc", "--fps 50 --frames 6 --video " + (folder_ / "clip.mp4").string());
  ASSERT_EQ(doubled.status, 0) << doubled.errors;
  EXPECT_EQ(shownIndices(doubled.output), (std::vector<int>{0, 0, 1, 1, 2, 2}));
}

TEST_F(RenderVideoTest, AClipThatCannotPlayIsNamed) {
  std::ofstream(folder_ / "notes.txt") << "no movie";
  for (const std::string name : {"missing.mp4", "notes.txt"}) {
    const QvaRun result = runQva("render --video " + (folder_ / name).string() + " -o -");
    EXPECT_EQ(result.status, 2) << name;
    EXPECT_EQ(result.errors.rfind("qva: --video " + (folder_ / name).string() + ": ", 0), 0U)
        << result.errors;
  }
}

TEST_F(RenderVideoTest, TheSubtitledClipExampleRenders) {
  const QvaRun result = render(std::string(QVA_SOURCE_DIR) + "/examples/subtitled-clip.qvc", "--frames 2");
  if (result.status != 0 && result.errors.find("OpenGL") != std::string::npos) {
    GTEST_SKIP() << result.errors;
  }
  ASSERT_EQ(result.status, 0) << result.errors;
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
