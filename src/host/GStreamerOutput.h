#pragma once

#include <memory>

#include "foundation/video/GStreamerWriter.h"
#include "host/RenderOutput.h"

namespace qva {

// Frames fed into a GStreamer pipeline.
class GStreamerOutput final : public RenderOutput {
 public:
  GStreamerOutput(std::unique_ptr<GStreamerWriter> writer, std::string pipeline)
      : writer_(std::move(writer)), pipeline_(std::move(pipeline)) {}

  std::string writeFrame(const PixelBufferView& frame) override { return writer_->writeFrame(frame); }
  std::string finish() override { return writer_->finish(); }
  std::string description() const override { return "GStreamer pipeline \"" + pipeline_ + "\""; }

 private:
  std::unique_ptr<GStreamerWriter> writer_;
  std::string pipeline_;
};

}  // namespace qva
