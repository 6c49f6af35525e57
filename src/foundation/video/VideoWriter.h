#pragma once

#include <memory>
#include <string>

#include "foundation/video/ChunkedEncoder.h"
#include "foundation/video/EncoderInput.h"
#include "foundation/video/FieldOrder.h"
#include "framework/Image.h"

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;

namespace qva {

// Encodes premultiplied BGRA frames into a video file with FFmpeg: QuickTime Animation with alpha in
// .mov (the default there), ProRes 4444 with alpha ("prores4444"), H.264 in .mp4 and FFV1 with alpha in
// .mkv. The file is written under a temporary name and appears under its own only when finish()
// succeeds; a writer destroyed unfinished removes it. QuickTime Animation and ProRes encode on every
// processor, in chunks of frames that each start with a key frame.
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
  // The next frame comes that many frame periods later than it would: the last frame written lasts
  // until then.
  void skipFrames(long long count) { nextTime_ += count; }
  std::string finish();
  const std::string& codecName() const { return codec_; }

 private:
  VideoWriter() = default;
  std::string encode(AVFrame* frame);
  // Writes a packet of the encoder's time base into the file.
  std::string writePacket(AVPacket* packet);

  std::string path_;
  std::string partialPath_;
  std::string codec_;
  bool finished_ = false;
  // The next frame's time, in frame periods.
  long long nextTime_ = 0;
  AVFormatContext* format_ = nullptr;
  // The encoder of the stream; with chunks, it only describes the stream, and each chunk has its own.
  AVCodecContext* encoder_ = nullptr;
  std::unique_ptr<EncoderInput> input_;
  std::unique_ptr<ChunkedEncoder> chunked_;
  AVPacket* packet_ = nullptr;
};

}  // namespace qva
