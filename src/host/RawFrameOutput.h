#pragma once

#include <cstdio>

#include "host/RenderOutput.h"

namespace qva {

// Frames as raw premultiplied BGRA bytes, width × 4 per row, top row first, one frame after another.
class RawFrameOutput final : public RenderOutput {
 public:
  explicit RawFrameOutput(std::FILE* stream);

  std::string writeFrame(const PixelBufferView& frame) override;
  std::string finish() override;
  std::string description() const override { return "standard output"; }

 private:
  std::FILE* stream_;
};

}  // namespace qva
