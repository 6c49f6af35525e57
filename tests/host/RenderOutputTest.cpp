#include <gtest/gtest.h>

#include <filesystem>

#include "foundation/image/Bitmap.h"
#include "foundation/image/ImageDecoder.h"
#include "host/PngSequenceOutput.h"
#include "host/RawFrameOutput.h"
#include "host/RenderOutput.h"
#include "host/ThreadedOutput.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

class RenderOutputTest : public ::testing::Test {
 protected:
  void SetUp() override {
    frame_ = Bitmap::allocate(8, 4, Bitmap::paddedRowBytes(8));
    for (int y = 0; y < 4; ++y) {
      std::fill_n(frame_->row(y), 32, static_cast<std::uint8_t>(60 * y + 15));
    }
  }

  TemporaryFolder folder_{"output"};
  std::optional<Bitmap> frame_;
};

TEST_F(RenderOutputTest, PngPatterns) {
  for (const char* pattern : {"out_%05d.png", "f%d.png"}) {
    EXPECT_TRUE(PngSequenceOutput::isPattern(pattern)) << pattern;
  }
  for (const char* name :
       {"out.png", "out_%s.png", "%d_%d.png", "out_%n.png", "out_%1234567d.png", "out_%"}) {
    EXPECT_FALSE(PngSequenceOutput::isPattern(name)) << name;
  }
}

TEST_F(RenderOutputTest, FolderGetsNumberedFrames) {
  auto opened = RenderOutput::open((folder_ / "frames/").string(), 8, 4, 25, "");
  ASSERT_TRUE(opened.output) << opened.error;
  EXPECT_EQ(opened.output->writeFrame(frame_->view()), "");
  EXPECT_EQ(opened.output->writeFrame(frame_->view()), "");
  EXPECT_EQ(opened.output->finish(), "");
  const auto second = ImageDecoder::decodeFile((folder_ / "frames" / "out_00001.png").string());
  ASSERT_TRUE(second.bitmap) << second.error;
  EXPECT_EQ(second.bitmap->row(3)[0], 195);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "frames" / "out_00002.png"));
}

TEST_F(RenderOutputTest, RawFramesAreTightRows) {
  std::FILE* stream = std::tmpfile();
  ASSERT_NE(stream, nullptr);
  RawFrameOutput output(stream);
  EXPECT_EQ(output.writeFrame(frame_->view()), "");
  EXPECT_EQ(output.finish(), "");
  EXPECT_EQ(std::ftell(stream), 8 * 4 * 4);
  std::fclose(stream);
}

TEST_F(RenderOutputTest, UnknownOrUnwritableOutputsAreClearErrors) {
  const auto unknown = RenderOutput::open((folder_ / "show.gif").string(), 8, 4, 25, "");
  EXPECT_FALSE(unknown.output);
  EXPECT_NE(unknown.error.find("unknown output"), std::string::npos);
  EXPECT_FALSE(RenderOutput::open((folder_ / "one.png").string(), 8, 4, 25, "").output);
  EXPECT_FALSE(RenderOutput::open((folder_ / "f_%d.png").string(), 8, 4, 25, "h264").output);
  EXPECT_FALSE(RenderOutput::open("/nonexistent-folder/show.mov", 8, 4, 25, "").output);
  auto pattern = RenderOutput::open("/nonexistent-folder/f_%03d.png", 8, 4, 25, "");
  ASSERT_TRUE(pattern.output);
  EXPECT_NE(pattern.output->writeFrame(frame_->view()), "");
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(RenderOutputTest, VideoDescribesItsCodec) {
  auto opened = RenderOutput::open((folder_ / "show.mov").string(), 8, 4, 25, "prores4444");
  ASSERT_TRUE(opened.output) << opened.error;
  EXPECT_NE(opened.output->description().find("prores4444"), std::string::npos);
  EXPECT_EQ(opened.output->writeFrame(frame_->view()), "");
  EXPECT_EQ(opened.output->finish(), "");
  EXPECT_TRUE(std::filesystem::exists(folder_ / "show.mov"));
}

TEST_F(RenderOutputTest, ThreadedOutputTakesFramesDrawnInPlace) {
  {
    ThreadedOutput output(RenderOutput::open((folder_ / "drawn_%d.png").string(), 8, 4, 25, "").output);
    for (int i = 0; i < 5; ++i) {
      EXPECT_EQ(output.writeFrameFilledBy(8, 4,
                                          [i](Bitmap& frame) {
                                            EXPECT_EQ(frame.rowBytes(), 32u);
                                            std::fill_n(frame.row(2), 32, static_cast<std::uint8_t>(50 * i));
                                            frame.row(2)[3] = 255;
                                            return std::string();
                                          }),
                "");
    }
    // A frame that could not be drawn is not written.
    EXPECT_EQ(output.writeFrameFilledBy(8, 4, [](Bitmap&) { return std::string("no picture"); }),
              "no picture");
    EXPECT_EQ(output.finish(), "");
  }
  for (int i = 0; i < 5; ++i) {
    const auto decoded =
        ImageDecoder::decodeFile((folder_ / ("drawn_" + std::to_string(i) + ".png")).string());
    ASSERT_TRUE(decoded.bitmap) << i;
    EXPECT_EQ(decoded.bitmap->row(2)[0], 50 * i);
  }
  EXPECT_FALSE(std::filesystem::exists(folder_ / "drawn_5.png"));
}

TEST_F(RenderOutputTest, ThreadedOutputKeepsOrderAndReportsFailures) {
  {
    ThreadedOutput output(RenderOutput::open((folder_ / "seq_%02d.png").string(), 8, 4, 25, "").output);
    for (int i = 0; i < 6; ++i) {
      std::fill_n(frame_->row(0), 4, static_cast<std::uint8_t>(40 * i));
      frame_->row(0)[3] = 255;
      EXPECT_EQ(output.writeFrame(frame_->view()), "");
    }
    EXPECT_EQ(output.finish(), "");
  }
  for (int i = 0; i < 6; ++i) {
    const auto decoded =
        ImageDecoder::decodeFile((folder_ / ("seq_0" + std::to_string(i) + ".png")).string());
    ASSERT_TRUE(decoded.bitmap) << i;
    EXPECT_EQ(decoded.bitmap->row(0)[0], 40 * i);
  }
  ThreadedOutput failing(RenderOutput::open("/nonexistent-folder/f_%03d.png", 8, 4, 25, "").output);
  std::string error;
  for (int i = 0; i < 10 && error.empty(); ++i) {
    error = failing.writeFrame(frame_->view());
  }
  if (error.empty()) {
    error = failing.finish();
  }
  EXPECT_NE(error.find("/nonexistent-folder/f_"), std::string::npos);
}

}  // namespace
}  // namespace qva
