#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>

#include "foundation/image/PngWriter.h"
#include "foundation/video/FieldOrder.h"
#include "framework/Image.h"

struct AVFrame;
struct SwsContext;

namespace qva {

// Premultiplied BGRA frames turned into the frames an encoder takes: straight or premultiplied alpha,
// in the encoder's pixel format and marked with the field order.
class EncoderInput {
 public:
  struct Creation {
    std::unique_ptr<EncoderInput> input;
    std::string error;
  };

  // pixelFormat is an AVPixelFormat; straightAlpha unpremultiplies, else the colour stays composited
  // over black.
  static Creation create(int width, int height, int pixelFormat, bool straightAlpha, FieldOrder fieldOrder);
  ~EncoderInput();
  EncoderInput(const EncoderInput&) = delete;
  EncoderInput& operator=(const EncoderInput&) = delete;

  // The frame converted, for the encoder, or null when memory ran out. Of the two frames filled in
  // turn, the one the encoder let go of is used: encoders that keep the last frame they were given
  // (QuickTime Animation, ProRes, FFV1) still hold one while the other is filled, which then needs
  // neither a copy nor a fresh allocation.
  AVFrame* fill(const PixelBufferView& frame);

 private:
  EncoderInput() = default;

  bool straightAlpha_ = true;
  // The frame's byte order when it is filled in place, without staging and conversion.
  std::optional<PngWriter::ChannelOrder> directOrder_;
  AVFrame* staging_ = nullptr;
  std::array<AVFrame*, 2> frames_{};
  SwsContext* converter_ = nullptr;
};

}  // namespace qva
