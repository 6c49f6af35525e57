#include <epoxy/gl.h>
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "foundation/dispatch/TaskQueue.h"
#include "host/FrameRenderer.h"
#include "patches/render/QVATexturedSquarePlugIn.h"

namespace qva {
namespace {

using Pixel = std::array<int, 4>;  // B, G, R, A premultiplied

constexpr Pixel red{0, 0, 255, 255};
constexpr Pixel blue{255, 0, 0, 255};

class FrameRendererTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto creation = Renderer::create(8, 8);
    if (!creation.renderer) {
      GTEST_SKIP() << creation.error;
    }
    renderer_ = std::move(creation.renderer);
    frame_ = Bitmap::allocate(8, 8, 8 * 4);
  }

  Pixel pixel(int x, int y) const {
    const std::uint8_t* p = frame_->row(y) + x * 4;
    return {p[0], p[1], p[2], p[3]};
  }

  // Renders frame 1 at 10 fps of a scene that fills the canvas red at the frame's own time and blue at
  // any other, remembering the times and arguments it was drawn with.
  void renderTimedScene(FieldOrder order) {
    FrameRenderer frames(*renderer_, context_, Color{0, 0, 0, 0}, 10, order);
    calls_.clear();
    const FrameRenderer::Scene scene = [this](double time, const Arguments& arguments) {
      calls_.push_back({time, arguments});
      const bool onTheFrame = time == 0.1;
      glClearColor(onTheFrame ? 1 : 0, 0, onTheFrame ? 0 : 1, 1);
      glClear(GL_COLOR_BUFFER_BIT);
    };
    EXPECT_EQ(frames.render(1, scene, *frame_), "");
  }

  struct Call {
    double time;
    Arguments arguments;
  };
  TaskQueue queue_;
  ExecutionContext context_{queue_};
  std::unique_ptr<Renderer> renderer_;
  std::optional<Bitmap> frame_;
  std::vector<Call> calls_;
};

TEST_F(FrameRendererTest, ProgressiveFramesAreOnePassWithoutArguments) {
  renderTimedScene(FieldOrder::Progressive);
  ASSERT_EQ(calls_.size(), 1u);
  EXPECT_TRUE(calls_[0].arguments.is_null());
  for (int y = 0; y < 8; ++y) {
    EXPECT_EQ(pixel(3, y), red) << y;
  }
}

TEST_F(FrameRendererTest, InterlacedFramesWeaveTwoFieldsHalfAFrameApart) {
  for (const FieldOrder order : {FieldOrder::UpperFirst, FieldOrder::LowerFirst}) {
    const bool upperFirst = order == FieldOrder::UpperFirst;
    SCOPED_TRACE(upperFirst ? "upper first" : "lower first");
    renderTimedScene(order);
    ASSERT_EQ(calls_.size(), 2u);
    EXPECT_DOUBLE_EQ(calls_[0].time, 0.1);
    EXPECT_DOUBLE_EQ(calls_[1].time, 0.15);
    EXPECT_EQ(calls_[0].arguments, FrameRenderer::fieldArguments(!upperFirst, true));
    EXPECT_EQ(calls_[1].arguments, FrameRenderer::fieldArguments(upperFirst, false));
    EXPECT_EQ(calls_[1].arguments["interlaceField"], upperFirst ? 1 : 0);
    // The first field's lines come from the frame's own time.
    for (int y = 0; y < 8; ++y) {
      const bool upperLine = y % 2 == 0;
      EXPECT_EQ(pixel(3, y), upperLine == upperFirst ? red : blue) << y;
    }
  }
}

// An interlaced picture drawn one texel per pixel by a sprite that separates fields comes out of
// interlaced rendering line for line as it went in: each field pass shows the source's matching field.
TEST_F(FrameRendererTest, InterlacedSourceSurvivesInterlacedOutput) {
  auto bitmap = Bitmap::allocate(8, 8, Bitmap::paddedRowBytes(8));
  for (int y = 0; y < 8; ++y) {
    for (int x = 0; x < 8; ++x) {
      const Pixel& colour = y % 2 == 0 ? red : blue;
      std::copy(colour.begin(), colour.end(), bitmap->row(y) + x * 4);
    }
  }
  QVATexturedSquarePlugIn sprite;
  sprite.setInputValue("inputImage", Value(std::move(*bitmap).toImage()));
  sprite.setInputValue("inputWidth", Value(2.0));
  sprite.setInputValue("inputHeight", Value(2.0));
  sprite.setInputValue("inputMipmapping", Value(false));
  sprite.setInputValue("inputBlending", Value(std::uint32_t{1}));
  renderer_->beginFrame(context_, Color{0, 0, 0, 0});
  sprite.startExecution(context_);
  sprite.enableExecution(context_);
  const FrameRenderer::Scene scene = [&](double time, const Arguments& arguments) {
    sprite.updateInputChangeFlags();
    EXPECT_TRUE(sprite.execute(context_, time, arguments));
    sprite.finishExecution();
  };
  for (const FieldOrder order : {FieldOrder::UpperFirst, FieldOrder::LowerFirst}) {
    FrameRenderer frames(*renderer_, context_, Color{0, 0, 0, 0}, 25, order);
    ASSERT_EQ(frames.render(0, scene, *frame_), "");
    for (int y = 0; y < 8; ++y) {
      EXPECT_EQ(pixel(4, y), y % 2 == 0 ? red : blue) << y;
    }
  }
  // Progressive output shows one field, line-doubled.
  FrameRenderer progressive(*renderer_, context_, Color{0, 0, 0, 0}, 25, FieldOrder::Progressive);
  ASSERT_EQ(progressive.render(0, scene, *frame_), "");
  EXPECT_EQ(pixel(4, 2), pixel(4, 3));
  sprite.stopExecution(context_);
}

}  // namespace
}  // namespace qva
