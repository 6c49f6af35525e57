#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "framework/Image.h"

typedef struct _GstElement GstElement;
typedef struct _GstBus GstBus;

namespace qva {

// Feeds premultiplied BGRA frames into a GStreamer pipeline that a user wrote, through an appsrc at its
// head whose caps carry the size, the frame rate and straight alpha (BGRA). Buffers are stamped with
// the pipeline's running time as they are pushed, as a live source does.
class GStreamerWriter {
 public:
  struct Creation {
    std::unique_ptr<GStreamerWriter> writer;
    std::string error;
  };

  // How long a pipeline may take no frames at all before it counts as failed.
  static constexpr std::chrono::seconds kStallLimit{5};

  // pipeline is what follows the source in gst-launch syntax, like "videoconvert ! autovideosink".
  static Creation open(const std::string& pipeline, int width, int height, double frameRate);
  ~GStreamerWriter();
  GStreamerWriter(const GStreamerWriter&) = delete;
  GStreamerWriter& operator=(const GStreamerWriter&) = delete;

  // An empty string, or why the pipeline took no frame: an error of one of its elements, or a stall.
  std::string writeFrame(const PixelBufferView& frame);
  // Ends the stream and waits for the pipeline to drain it; an empty string, or the pipeline's error.
  std::string finish();

 private:
  GStreamerWriter() = default;
  // The first error the pipeline posted since the last look, or an empty string.
  std::string takeError();
  std::string failure(const std::string& error);

  std::string pipelineText_;
  int width_ = 0;
  int height_ = 0;
  GstElement* pipeline_ = nullptr;
  GstElement* source_ = nullptr;
  GstBus* bus_ = nullptr;
  std::string error_;
};

}  // namespace qva
