#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include "foundation/image/ImageDecoder.h"
#include "host/PreviewOutput.h"
#include "support/CompositionFrames.h"
#include "support/GLTest.h"
#include "support/TemporaryFolder.h"
#include "support/VirtualDisplay.h"

namespace qva {
namespace {

class PreviewOutputTest : public GLTest {};

TEST_F(PreviewOutputTest, WindowShowsTheRenderedFrameOverBlack) {
  VirtualDisplay display(320, 240);
  if (!display.running()) {
    GTEST_SKIP() << "no Xvfb";
  }
  auto creation = Renderer::create(std::move(gl_), 160, 90);
  ASSERT_TRUE(creation.renderer) << creation.error;
  CompositionFrames frames(*creation.renderer, QVA_TEST_DATA_DIR "/render-scenes/sprite-filtering.qvc");
  ASSERT_EQ(frames.render(0), "");
  const Bitmap& frame = frames.frame();

  PreviewOutput preview;
  ASSERT_EQ(preview.writeFrame(frame.view()), "");
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  ASSERT_EQ(preview.writeFrame(frame.view()), "");

  TemporaryFolder folder("preview");
  const std::string shot = (folder / "screen.png").string();
  const std::string command =
      "import -display " + display.display() + " -window root " + shot + " 2>/dev/null";
  if (std::system(command.c_str()) != 0) {
    GTEST_SKIP() << "no ImageMagick import";
  }
  const auto screen = ImageDecoder::decodeFile(shot);
  ASSERT_TRUE(screen.bitmap) << screen.error;
  int differing = 0;
  int coloured = 0;
  for (int y = 0; y < frame.height(); ++y) {
    for (int x = 0; x < frame.width(); ++x) {
      const std::uint8_t* rendered = frame.row(y) + x * 4;
      const std::uint8_t* shown = screen.bitmap->row(y) + x * 4;
      coloured += rendered[0] + rendered[1] + rendered[2] > 0 ? 1 : 0;
      for (int channel = 0; channel < 3; ++channel) {
        differing += std::abs(rendered[channel] - shown[channel]) > 1 ? 1 : 0;
      }
    }
  }
  EXPECT_GT(coloured, frame.width() * frame.height() / 4) << "the scene drew too little to compare";
  EXPECT_EQ(differing, 0);
  // Beside the window the screen stays as it was.
  EXPECT_EQ(screen.bitmap->row(200)[300 * 4 + 1], screen.bitmap->row(239)[319 * 4 + 1]);
  EXPECT_EQ(preview.finish(), "");
}

TEST(PreviewOutputNoDisplayTest, WithoutADisplayTheFirstFrameSaysSo) {
  const char* previous = std::getenv("DISPLAY");
  const std::string saved = previous != nullptr ? previous : "";
  setenv("DISPLAY", ":9999", 1);
  unsetenv("WAYLAND_DISPLAY");
  auto frame = Bitmap::allocate(4, 4, 16);
  PreviewOutput preview;
  const std::string error = preview.writeFrame(frame->view());
  EXPECT_NE(error.find("no display for the preview window"), std::string::npos) << error;
  EXPECT_EQ(preview.finish(), "");
  if (saved.empty()) {
    unsetenv("DISPLAY");
  } else {
    setenv("DISPLAY", saved.c_str(), 1);
  }
}

}  // namespace
}  // namespace qva
