#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <vector>

#include "foundation/image/Bitmap.h"
#include "foundation/video/VideoWriter.h"
#include "support/TemporaryFolder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace qva {
namespace {

class VideoWriterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    frame_ = Bitmap::allocate(64, 36, Bitmap::paddedRowBytes(64));
    paint(11);
  }
  // A half-transparent red frame with a white bar of nine rows from barTop down.
  void paint(int barTop) {
    for (int y = 0; y < 36; ++y) {
      for (int x = 0; x < 64; ++x) {
        std::uint8_t* p = frame_->row(y) + x * 4;
        const bool bar = y >= barTop && y < barTop + 9;
        p[0] = bar ? 255 : 0;
        p[1] = bar ? 255 : 0;
        p[2] = bar ? 255 : 128;
        p[3] = bar ? 255 : 128;
      }
    }
  }
  // A written file read back with FFmpeg: its codec, pixel format, packets and field order, and every
  // frame decoded to straight BGRA, 64 × 36 tight rows. Nothing when it cannot be read.
  struct Probe {
    std::string codec;
    std::string pixelFormat;
    long long frames = 0;
    long long keyFrames = 0;
    // Each packet's time, in periods of 25 frames a second.
    std::vector<long long> times;
    AVFieldOrder fieldOrder = AV_FIELD_UNKNOWN;
    std::vector<std::vector<std::uint8_t>> decoded;
  };
  static Probe probe(const std::string& path) {
    Probe result;
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) < 0) {
      return result;
    }
    avformat_find_stream_info(format, nullptr);
    const AVCodecParameters* parameters = format->streams[0]->codecpar;
    result.codec = avcodec_get_name(parameters->codec_id);
    const char* name = av_get_pix_fmt_name(static_cast<AVPixelFormat>(parameters->format));
    result.pixelFormat = name != nullptr ? name : "";
    result.fieldOrder = parameters->field_order;
    AVCodecContext* decoder = avcodec_alloc_context3(avcodec_find_decoder(parameters->codec_id));
    avcodec_parameters_to_context(decoder, parameters);
    const bool decoding = avcodec_open2(decoder, nullptr, nullptr) == 0;
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    const auto keep = [&] {
      while (decoding && avcodec_receive_frame(decoder, frame) == 0) {
        std::vector<std::uint8_t>& pixels = result.decoded.emplace_back(64 * 36 * 4);
        SwsContext* converter =
            sws_getContext(frame->width, frame->height, static_cast<AVPixelFormat>(frame->format), 64, 36,
                           AV_PIX_FMT_BGRA, SWS_POINT, nullptr, nullptr, nullptr);
        std::uint8_t* planes[1] = {pixels.data()};
        const int strides[1] = {64 * 4};
        sws_scale(converter, frame->data, frame->linesize, 0, frame->height, planes, strides);
        sws_freeContext(converter);
      }
    };
    while (av_read_frame(format, packet) >= 0) {
      ++result.frames;
      result.keyFrames += (packet->flags & AV_PKT_FLAG_KEY) != 0 ? 1 : 0;
      result.times.push_back(av_rescale_q(packet->pts, format->streams[0]->time_base, AVRational{1, 25}));
      if (decoding) {
        avcodec_send_packet(decoder, packet);
      }
      av_packet_unref(packet);
      keep();
    }
    if (decoding) {
      avcodec_send_packet(decoder, nullptr);
    }
    keep();
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&decoder);
    avformat_close_input(&format);
    return result;
  }

  // The B, G, R, A of a pixel of a decoded frame.
  static std::vector<int> pixelAt(const std::vector<std::uint8_t>& frame, int x, int y) {
    const auto at = frame.begin() + (static_cast<std::ptrdiff_t>(y) * 64 + x) * 4;
    return std::vector<int>(at, at + 4);
  }

  // Writes the frames, frame i with its bar from barTop(i) down; the file's path.
  std::string write(
      const std::string& name, const std::string& codec, int frames = 3,
      FieldOrder fieldOrder = FieldOrder::Progressive,
      const std::function<int(int)>& barTop = [](int) { return 11; }) {
    const auto path = (folder_ / name).string();
    auto creation = VideoWriter::open(path, 64, 36, 25, codec, fieldOrder);
    EXPECT_TRUE(creation.writer) << creation.error;
    if (!creation.writer) {
      return path;
    }
    for (int i = 0; i < frames; ++i) {
      paint(barTop(i));
      EXPECT_EQ(creation.writer->writeFrame(frame_->view()), "");
    }
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(creation.writer->finish(), "");
    return path;
  }

  TemporaryFolder folder_{"video"};
  std::optional<Bitmap> frame_;
};

TEST_F(VideoWriterTest, EveryContainerWithItsDefaultAndAlpha) {
  const Probe animation = probe(write("a.mov", ""));
  EXPECT_EQ(animation.codec, "qtrle");
  EXPECT_EQ(animation.pixelFormat, "argb");
  EXPECT_EQ(animation.frames, 3);
  const Probe prores = probe(write("p.mov", "prores4444"));
  EXPECT_EQ(prores.codec, "prores");
  // The decoder reports its own depth; what matters is the alpha plane.
  EXPECT_EQ(prores.pixelFormat.rfind("yuva444p", 0), 0u) << prores.pixelFormat;
  EXPECT_EQ(prores.frames, 3);
  const Probe h264 = probe(write("h.mp4", ""));
  EXPECT_EQ(h264.codec, "h264");
  EXPECT_EQ(h264.frames, 3);
  const Probe ffv1 = probe(write("f.mkv", ""));
  EXPECT_EQ(ffv1.codec, "ffv1");
  EXPECT_EQ(ffv1.pixelFormat, "bgra");
  EXPECT_EQ(ffv1.frames, 3);
  // Nothing but the finished files is left in the folder.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_.path()),
                          std::filesystem::directory_iterator()),
            4);
}

TEST_F(VideoWriterTest, InterlacedVideosCarryTheirFieldOrder) {
  EXPECT_EQ(probe(write("upper.mov", "", 2, FieldOrder::UpperFirst)).fieldOrder, AV_FIELD_TT);
  EXPECT_EQ(probe(write("lower.mov", "prores4444", 2, FieldOrder::LowerFirst)).fieldOrder, AV_FIELD_BB);
  const Probe h264 = probe(write("upper.mp4", "", 2, FieldOrder::UpperFirst));
  EXPECT_EQ(h264.fieldOrder, AV_FIELD_TT);
  EXPECT_EQ(h264.frames, 2);
  EXPECT_EQ(probe(write("upper.mkv", "", 2, FieldOrder::UpperFirst)).fieldOrder, AV_FIELD_TT);
  EXPECT_EQ(probe(write("whole.mov", "", 2)).fieldOrder, AV_FIELD_PROGRESSIVE);
}

// Decoded again, the lossless codecs give back every frame's colours with straight alpha, frames that
// differ from the one before included.
TEST_F(VideoWriterTest, LosslessCodecsKeepStraightColoursOfEveryFrame) {
  for (const char* name : {"colours.mov", "colours.mkv"}) {
    SCOPED_TRACE(name);
    // The white bar moves down a row each frame.
    const auto frames =
        probe(write(name, "", 5, FieldOrder::Progressive, [](int i) { return 11 + i; })).decoded;
    ASSERT_EQ(frames.size(), 5u);
    for (int i = 0; i < 5; ++i) {
      EXPECT_EQ(pixelAt(frames[i], 5, 10 + i), (std::vector<int>{0, 0, 255, 128})) << i;
      EXPECT_EQ(pixelAt(frames[i], 40, 11 + i), (std::vector<int>{255, 255, 255, 255})) << i;
      EXPECT_EQ(pixelAt(frames[i], 40, 19 + i), (std::vector<int>{255, 255, 255, 255})) << i;
      EXPECT_EQ(pixelAt(frames[i], 40, 20 + i), (std::vector<int>{0, 0, 255, 128})) << i;
    }
  }
}

// QuickTime Animation and ProRes are encoded in chunks on several threads: the frames still come out
// whole and in order, each chunk from a key frame.
TEST_F(VideoWriterTest, FramesEncodedInChunksComeOutInOrder) {
  for (const char* codec : {"qtrle", "prores4444"}) {
    SCOPED_TRACE(codec);
    constexpr int kFrames = 40;
    const Probe probed = probe(write(std::string(codec) + ".mov", codec, kFrames, FieldOrder::Progressive,
                                     [](int i) { return i % 27; }));
    EXPECT_EQ(probed.frames, kFrames);
    // A key frame starts every chunk of twelve; every ProRes frame is one.
    EXPECT_EQ(probed.keyFrames, std::string(codec) == "qtrle" ? 4 : kFrames);
    const auto& frames = probed.decoded;
    ASSERT_EQ(frames.size(), static_cast<std::size_t>(kFrames));
    for (int i = 0; i < kFrames; ++i) {
      const int barTop = i % 27;
      EXPECT_NEAR(pixelAt(frames[i], 40, barTop)[1], 255, 3) << i;
      if (barTop + 9 < 36) {
        EXPECT_NEAR(pixelAt(frames[i], 40, barTop + 9)[1], 0, 3) << i;
        EXPECT_NEAR(pixelAt(frames[i], 40, barTop + 9)[3], 128, 1) << i;
      }
    }
  }
}

// Frame periods skipped (frames a live output had no room for) leave the last frame on over the gap,
// across chunks of QuickTime Animation as in a single FFV1 encoder, so that the video keeps its length.
TEST_F(VideoWriterTest, SkippedFramePeriodsLeaveGapsInTheTimeline) {
  for (const char* name : {"gaps.mov", "gaps.mkv"}) {
    SCOPED_TRACE(name);
    const auto path = (folder_ / name).string();
    auto creation = VideoWriter::open(path, 64, 36, 25, "", FieldOrder::Progressive);
    ASSERT_TRUE(creation.writer) << creation.error;
    std::vector<long long> expected;
    long long time = 0;
    for (int i = 0; i < 15; ++i) {
      if (i == 5 || i == 13) {
        const long long skipped = i == 5 ? 3 : 20;
        creation.writer->skipFrames(skipped);
        time += skipped;
      }
      paint(11);
      EXPECT_EQ(creation.writer->writeFrame(frame_->view()), "");
      expected.push_back(time++);
    }
    EXPECT_EQ(creation.writer->finish(), "");
    EXPECT_EQ(probe(path).times, expected);
  }
}

// ProRes 4444 keeps colour to within 8-bit rounding and alpha exactly; the alpha read back is within
// one, as the decoder's 12 bits round half up to 8.
TEST_F(VideoWriterTest, ProResKeepsAlphaAndNearlyTheColours) {
  for (const FieldOrder order : {FieldOrder::Progressive, FieldOrder::UpperFirst}) {
    const auto frames =
        probe(write(order == FieldOrder::Progressive ? "p.mov" : "i.mov", "prores4444", 2, order)).decoded;
    ASSERT_EQ(frames.size(), 2u);
    for (const auto& pixels : frames) {
      const auto expectNear = [&](int x, int y, std::vector<int> expected) {
        const std::vector<int> found = pixelAt(pixels, x, y);
        for (std::size_t channel = 0; channel < 3; ++channel) {
          EXPECT_NEAR(found[channel], expected[channel], 3) << x << "," << y << " " << channel;
        }
        EXPECT_NEAR(found[3], expected[3], 1) << x << "," << y;
      };
      expectNear(5, 10, {0, 0, 255, 128});
      expectNear(40, 15, {255, 255, 255, 255});
      expectNear(63, 35, {0, 0, 255, 128});
    }
  }
}

TEST_F(VideoWriterTest, BadRequestsAreErrors) {
  EXPECT_NE(VideoWriter::open((folder_ / "x.avi").string(), 64, 36, 25, "").error.find(".avi"),
            std::string::npos);
  EXPECT_NE(VideoWriter::open((folder_ / "x.mov").string(), 64, 36, 25, "gif").error.find("gif"),
            std::string::npos);
  EXPECT_FALSE(VideoWriter::open((folder_ / "x.mov").string(), 0, 36, 25, "").writer);
  EXPECT_FALSE(VideoWriter::open((folder_ / "x.mov").string(), 64, 36, 0, "").writer);
  const auto unwritable = VideoWriter::open("/nonexistent-folder/x.mov", 64, 36, 25, "");
  EXPECT_FALSE(unwritable.writer);
  EXPECT_NE(unwritable.error.find("/nonexistent-folder/x.mov"), std::string::npos);
  auto writer = VideoWriter::open((folder_ / "y.mov").string(), 64, 36, 25, "").writer;
  ASSERT_TRUE(writer);
  EXPECT_NE(writer->writeFrame(PixelBufferView{32, 36, 128, frame_->bytes()}), "");
}

TEST_F(VideoWriterTest, AnUnfinishedVideoLeavesNoFile) {
  {
    auto writer = VideoWriter::open((folder_ / "cut.mov").string(), 64, 36, 25, "").writer;
    ASSERT_TRUE(writer);
    EXPECT_EQ(writer->writeFrame(frame_->view()), "");
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

}  // namespace
}  // namespace qva
