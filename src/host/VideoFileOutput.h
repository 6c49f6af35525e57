#pragma once

#include <memory>

#include "foundation/video/VideoWriter.h"
#include "host/RenderOutput.h"

namespace qva {

// Frames encoded into a video file.
class VideoFileOutput final : public RenderOutput {
 public:
  VideoFileOutput(std::unique_ptr<VideoWriter> writer, std::string path)
      : writer_(std::move(writer)), path_(std::move(path)) {}

  std::string writeFrame(const PixelBufferView& frame) override { return writer_->writeFrame(frame); }
  void skipFrames(long long count) override { writer_->skipFrames(count); }
  std::string finish() override { return writer_->finish(); }
  std::string description() const override { return path_ + " (" + writer_->codecName() + ")"; }

 private:
  std::unique_ptr<VideoWriter> writer_;
  std::string path_;
};

}  // namespace qva
