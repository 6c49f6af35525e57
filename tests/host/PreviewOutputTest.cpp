#include <SDL2/SDL.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include "foundation/image/ImageDecoder.h"
#include "host/LiveOutput.h"
#include "host/MonotonicClock.h"
#include "host/Playout.h"
#include "host/PreviewOutput.h"
#include "support/BlockingOutput.h"
#include "support/CompositionFrames.h"
#include "support/TemporaryFolder.h"
#include "support/VirtualDisplay.h"

namespace qva {
namespace {

using namespace std::chrono_literals;

constexpr int kFrameWidth = 1920;
constexpr int kFrameHeight = 1080;
// The window: the frame scaled down to fit 1280 × 720.
constexpr int kWindowWidth = 1280;
constexpr int kWindowHeight = 720;

// Waits until the condition holds, at most a few seconds; whether it held.
bool eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + 5s;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(10ms);
  }
  return true;
}

// A 1080p renderer whose context is on an X server of the test's own, a little larger than the window.
class PreviewOutputTest : public ::testing::Test {
 protected:
  void SetUp() override {
    display_ = std::make_unique<VirtualDisplay>(kWindowWidth + 20, kWindowHeight + 20);
    if (!display_->running()) {
      GTEST_SKIP() << "no Xvfb";
    }
    auto context = GLContext::create(GLContext::Platform::WindowSystem);
    ASSERT_TRUE(context.context) << context.error;
    auto creation = Renderer::create(std::move(context.context), kFrameWidth, kFrameHeight);
    ASSERT_TRUE(creation.renderer) << creation.error;
    renderer_ = std::move(creation.renderer);
  }

  std::unique_ptr<PreviewOutput> openPreview() {
    auto creation = PreviewOutput::open(renderer_->gl(), kFrameWidth, kFrameHeight);
    EXPECT_TRUE(creation.output) << creation.error;
    return std::move(creation.output);
  }

  // The whole screen as ImageMagick's import sees it; nothing where it cannot.
  std::optional<Bitmap> screenshot() {
    const std::string shot = (folder_ / "screen.png").string();
    const std::string command =
        "import -display " + display_->display() + " -window root " + shot + " 2>/dev/null";
    if (std::system(command.c_str()) != 0) {
      return std::nullopt;
    }
    auto decoded = ImageDecoder::decodeFile(shot);
    return std::move(decoded.bitmap);
  }

  // A screenshot once the window's top-left pixel has the given grey level, or the last one taken.
  std::optional<Bitmap> screenshotShowing(int grey) {
    std::optional<Bitmap> shot;
    eventually([&] {
      shot = screenshot();
      return !shot || shot->row(0)[1] == grey;
    });
    return shot;
  }

  TemporaryFolder folder_{"preview"};
  std::unique_ptr<VirtualDisplay> display_;
  std::unique_ptr<Renderer> renderer_;
};

// The frame's pixel at a point of the window, as linear filtering of its texture scaled to the window's
// size gives it: the texel centres nearest the point, weighted by distance.
int sampledLinearly(const Bitmap& frame, int windowX, int windowY, int channel) {
  const auto coordinate = [](int window, int frameSize, int windowSize) {
    const double at = (window + 0.5) * frameSize / windowSize - 0.5;
    const int first = std::clamp(static_cast<int>(std::floor(at)), 0, frameSize - 2);
    return std::pair{first, std::clamp(at - first, 0.0, 1.0)};
  };
  const auto [x, fractionX] = coordinate(windowX, frame.width(), kWindowWidth);
  const auto [y, fractionY] = coordinate(windowY, frame.height(), kWindowHeight);
  const auto texel = [&](int column, int row) { return frame.row(row)[column * 4 + channel]; };
  const double top = texel(x, y) * (1 - fractionX) + texel(x + 1, y) * fractionX;
  const double bottom = texel(x, y + 1) * (1 - fractionX) + texel(x + 1, y + 1) * fractionX;
  return static_cast<int>(std::lround(top * (1 - fractionY) + bottom * fractionY));
}

TEST_F(PreviewOutputTest, WindowShowsTheCanvasScaledToFitOverBlack) {
  CompositionFrames frames(*renderer_, QVA_TEST_DATA_DIR "/render-scenes/sprite-filtering.qvc");
  ASSERT_EQ(frames.render(0), "");
  const Bitmap& frame = frames.frame();
  auto preview = openPreview();
  ASSERT_TRUE(preview);
  preview->offerCanvas(renderer_->canvasTexture());
  ASSERT_TRUE(eventually([&] { return preview->written() == 1; })) << preview->error();

  const auto screen = screenshot();
  if (!screen) {
    GTEST_SKIP() << "no ImageMagick import";
  }
  int differing = 0;
  int coloured = 0;
  for (int y = 0; y < kWindowHeight; ++y) {
    for (int x = 0; x < kWindowWidth; ++x) {
      const std::uint8_t* shown = screen->row(y) + x * 4;
      coloured += shown[0] + shown[1] + shown[2] > 0 ? 1 : 0;
      for (int channel = 0; channel < 3; ++channel) {
        differing += std::abs(sampledLinearly(frame, x, y, channel) - shown[channel]) > 3 ? 1 : 0;
      }
    }
  }
  EXPECT_GT(coloured, kWindowWidth * kWindowHeight / 4) << "the scene drew too little to compare";
  EXPECT_EQ(differing, 0);
  // Beside the window the screen stays as it was.
  EXPECT_EQ(screen->row(kWindowHeight + 5)[(kWindowWidth + 5) * 4 + 1],
            screen->row(kWindowHeight + 19)[(kWindowWidth + 19) * 4 + 1]);
  EXPECT_EQ(preview->finish(), "");
  EXPECT_EQ(preview->written(), 1);
  EXPECT_EQ(preview->dropped(), 0);
}

// Jumps to each frame's due time at once: the host draws as fast as it can and outruns the window.
class JumpingClock final : public PlayoutClock {
 public:
  Time now() override { return now_; }
  void waitUntil(Time time) override { now_ = std::max(now_, time); }
  void wake() override {}

 private:
  Time now_{};
};

// A playout of a canvas cleared to a grey that a published input sets, one level for each frame drawn.
class PreviewPlayoutTest : public PreviewOutputTest {
 protected:
  static constexpr int kFirstGrey = 40;
  static constexpr int kGreyStep = 4;

  Composition greys() {
    const std::string path = (folder_ / "grey.qvc").string();
    std::ofstream(path) << R"({"format": "qva-composition/1", "fps": 25,
                             "patches": [{"id": "clear", "class": "HostClear"}],
                             "publishedInputs": {"grey": "clear.inputColor"}})";
    return Composition::load(path);
  }

  // The grey of the frame drawn after n others.
  static int grey(long long drawn) { return kFirstGrey + kGreyStep * static_cast<int>(drawn); }
  static std::vector<std::pair<std::string, Value>> greyInput(long long drawn) {
    const double level = grey(drawn) / 255.0;
    return {{"grey", Value(Color{level, level, level, 1})}};
  }
};

TEST_F(PreviewPlayoutTest, WindowBehindTheClockShowsTheNewestFrameAndNothingIsReadBack) {
  JumpingClock clock;
  Playout playout(*renderer_, clock, 25, greys());
  auto opened = openPreview();
  ASSERT_TRUE(opened);
  PreviewOutput& preview = *opened;
  playout.addOutput(std::move(opened));
  ASSERT_EQ(playout.setInputs(greyInput(0)), "");
  long long drawn = 0;
  std::vector<int> expected;
  std::vector<int> seen;
  playout.play(24, [&] {
    ++drawn;
    if (drawn % 6 == 0) {
      // Once the preview has taken every frame offered, it shows the newest: never an older one.
      EXPECT_TRUE(eventually([&] { return preview.written() + preview.dropped() == drawn; }));
      const auto screen = screenshotShowing(grey(drawn - 1));
      expected.push_back(grey(drawn - 1));
      seen.push_back(screen ? screen->row(kWindowHeight / 2)[kWindowWidth / 2 * 4 + 1] : -1);
    }
    EXPECT_EQ(playout.setInputs(greyInput(drawn)), "");
  });
  if (!expected.empty() && seen.front() == -1) {
    GTEST_SKIP() << "no ImageMagick import";
  }
  EXPECT_EQ(seen, expected);
  EXPECT_EQ(playout.finishOutputs(), std::vector<std::string>{""});
  EXPECT_EQ(preview.written() + preview.dropped(), drawn);
  EXPECT_GT(preview.dropped(), 0) << "the window kept up with a clock that never waits";
  // The only output takes the canvas: no frame was read back.
  EXPECT_EQ(playout.latestFrame(), nullptr);
}

TEST_F(PreviewPlayoutTest, ClosingTheWindowEndsThePreviewAlone) {
  MonotonicClock clock;
  Playout playout(*renderer_, clock, 25, greys());
  BlockingOutput::Record written;
  playout.addOutput(std::make_unique<LiveOutput>(std::make_unique<BlockingOutput>(written), 100));
  auto opened = openPreview();
  ASSERT_TRUE(opened);
  PreviewOutput& preview = *opened;
  playout.addOutput(std::move(opened));
  long long drawn = 0;
  playout.play(20, [&] {
    if (++drawn == 5) {
      // What SDL makes of the window manager's request to close the window.
      SDL_Event close{};
      close.type = SDL_WINDOWEVENT;
      close.window.event = SDL_WINDOWEVENT_CLOSE;
      SDL_PushEvent(&close);
      EXPECT_TRUE(eventually([&] { return preview.failed(); }));
    }
  });
  EXPECT_EQ(playout.finishOutputs(), (std::vector<std::string>{"", "the preview window was closed"}));
  // The other output got every frame drawn, and repeats for any the clock skipped; the preview none after
  // it closed.
  EXPECT_GE(written.count(), static_cast<std::size_t>(drawn));
  EXPECT_EQ(playout.outputs()[0]->dropped(), 0);
  EXPECT_LE(preview.written() + preview.dropped(), 5);
  ASSERT_NE(playout.latestFrame(), nullptr);
}

TEST(PreviewWithoutDisplayTest, HostContextOnTheWindowSystemSaysWhyNot) {
  const char* previous = std::getenv("DISPLAY");
  const std::string saved = previous != nullptr ? previous : "";
  setenv("DISPLAY", ":9999", 1);
  const auto missing = GLContext::create(GLContext::Platform::WindowSystem);
  EXPECT_FALSE(missing.context);
  EXPECT_NE(missing.error.find("cannot open the X display \":9999\""), std::string::npos) << missing.error;
  unsetenv("DISPLAY");
  const auto unset = GLContext::create(GLContext::Platform::WindowSystem);
  EXPECT_FALSE(unset.context);
  EXPECT_NE(unset.error.find("DISPLAY is not set"), std::string::npos) << unset.error;
  if (!saved.empty()) {
    setenv("DISPLAY", saved.c_str(), 1);
  }
}

TEST(PreviewWithoutDisplayTest, PlayGoesOnToTheOtherOutputsAndFailsWithTheWindowAlone) {
  const std::filesystem::path qva = QVA_BINARY_DIR "/src/cli/qva";
  if (!std::filesystem::exists(qva)) {
    GTEST_SKIP() << "qva is not built";
  }
  TemporaryFolder folder("preview-cli");
  const std::string play = "DISPLAY=:9999 " + qva.string() + " play --size 64x36 --frames 3 --preview";
  const std::string log = (folder / "log").string();
  const std::string pngs = (folder / "frames").string() + "/";
  EXPECT_EQ(std::system((play + " -o " + pngs + " 2>" + log).c_str()), 0);
  std::stringstream errors;
  errors << std::ifstream(log).rdbuf();
  EXPECT_NE(errors.str().find("no preview window: "), std::string::npos) << errors.str();
  EXPECT_TRUE(std::filesystem::exists(folder / "frames" / "out_00002.png"));

  EXPECT_NE(std::system((play + " 2>" + log).c_str()), 0);
  errors.str("");
  errors << std::ifstream(log).rdbuf();
  EXPECT_NE(errors.str().find("cannot open the X display \":9999\""), std::string::npos) << errors.str();
}

}  // namespace
}  // namespace qva
