#pragma once

#include "host/RenderOutput.h"

namespace qva {

// Frames as numbered PNG files (straight alpha), named by a pattern with one integer conversion.
class PngSequenceOutput final : public RenderOutput {
 public:
  // pattern holds exactly one "%d" or "%0Nd".
  explicit PngSequenceOutput(std::string pattern) : pattern_(std::move(pattern)) {}
  // Whether a pattern holds exactly one integer conversion and no other '%'.
  static bool isPattern(const std::string& pattern);

  std::string writeFrame(const PixelBufferView& frame) override;
  std::string finish() override { return {}; }
  std::string description() const override { return pattern_; }

 private:
  std::string pattern_;
  long long index_ = 0;
};

}  // namespace qva
