#pragma once

#include <memory>
#include <string>

#include "foundation/video/FieldOrder.h"
#include "framework/Image.h"

namespace qva {

// Where rendered frames go: a PNG sequence, a video file, a GStreamer pipeline or raw BGRA frames on
// standard output.
class RenderOutput {
 public:
  // What names a GStreamer pipeline, in gst-launch syntax after it.
  static constexpr const char* kGStreamerPrefix = "gst:";

  struct Creation {
    std::unique_ptr<RenderOutput> output;
    std::string error;
  };

  // "-" for raw frames on standard output; "gst:PIPELINE" for a GStreamer pipeline; NAME.mov, .mp4 or
  // .mkv for a video (codec as VideoWriter takes it); a folder (existing, or named with a trailing slash) for
  // out_%05d.png in it, or a pattern with one %d (optionally %05d) ending in .png. Videos carry the field
  // order.
  static Creation open(const std::string& path, int width, int height, double frameRate,
                       const std::string& codec, FieldOrder fieldOrder = FieldOrder::Progressive);

  virtual ~RenderOutput();
  // An empty string on success, else why the frame was not written.
  virtual std::string writeFrame(const PixelBufferView& frame) = 0;
  // The next frame comes that many frame periods later than it would, frames having been dropped before
  // it. Outputs with a timeline (videos) keep the last frame over the gap, so that they last as long as
  // the playout; the others have nothing to keep.
  virtual void skipFrames(long long /*count*/) {}
  // Completes the output; an empty string on success.
  virtual std::string finish() = 0;
  // What the summary line names: the path, or "standard output".
  virtual std::string description() const = 0;
};

}  // namespace qva
