#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>

#include "foundation/image/PngWriter.h"
#include "foundation/video/FieldOrder.h"
#include "framework/Image.h"

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct SwsContext;

namespace qva {

// Encodes premultiplied BGRA frames into a video file with FFmpeg: QuickTime Animation with alpha in
// .mov (the default there), ProRes 4444 with alpha ("prores4444"), H.264 in .mp4 and FFV1 with alpha in
// .mkv. The file is written under a temporary name and appears under its own only when finish()
// succeeds; a writer destroyed unfinished removes it.
class VideoWriter {
 public:
  struct Creation {
    std::unique_ptr<VideoWriter> writer;
    std::string error;
  };

  // codec empty chooses the container's default; known codecs: "qtrle", "prores4444", "h264", "ffv1".
  // Interlaced frames are marked with their field order in the stream and, where the codec can, coded
  // as fields.
  static Creation open(const std::string& path, int width, int height, double frameRate,
                       const std::string& codec, FieldOrder fieldOrder = FieldOrder::Progressive);
  ~VideoWriter();
  VideoWriter(const VideoWriter&) = delete;
  VideoWriter& operator=(const VideoWriter&) = delete;

  // An empty string on success, else why the frame could not be encoded.
  std::string writeFrame(const PixelBufferView& frame);
  std::string finish();
  const std::string& codecName() const { return codec_; }

 private:
  VideoWriter() = default;
  std::string encode(AVFrame* frame);

  std::string path_;
  std::string partialPath_;
  std::string codec_;
  bool straightAlpha_ = true;
  // The frame's byte order when it is filled in place, without staging and conversion.
  std::optional<PngWriter::ChannelOrder> directOrder_;
  bool finished_ = false;
  long long frameIndex_ = 0;
  AVFormatContext* format_ = nullptr;
  AVCodecContext* encoder_ = nullptr;
  AVFrame* staging_ = nullptr;
  // The frames handed to the encoder, filled in turn: encoders that keep the last frame they were
  // given (QuickTime Animation, ProRes, FFV1) still hold one while the other is filled, which then
  // needs neither a copy nor a fresh allocation.
  std::array<AVFrame*, 2> frames_{};
  AVPacket* packet_ = nullptr;
  SwsContext* converter_ = nullptr;
};

}  // namespace qva
