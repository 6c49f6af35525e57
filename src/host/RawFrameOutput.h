#pragma once

#include <cstdio>

#include "host/RenderOutput.h"

namespace qva {

// Frames as raw premultiplied BGRA bytes, width × 4 per row, top row first, one frame after another.
class RawFrameOutput final : public RenderOutput {
 public:
  // What writing answers once the reader has closed its end, which ends a render without complaint.
  static constexpr const char* kReaderClosed = "the reader of standard output has closed it";

  explicit RawFrameOutput(std::FILE* stream);

  std::string writeFrame(const PixelBufferView& frame) override;
  std::string finish() override;
  std::string description() const override { return "standard output"; }

 private:
  static std::string writeError();

  std::FILE* stream_;
};

}  // namespace qva
