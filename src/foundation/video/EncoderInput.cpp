#include "foundation/video/EncoderInput.h"

extern "C" {
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

#include <algorithm>

namespace qva {

EncoderInput::Creation EncoderInput::create(int width, int height, int pixelFormat, bool straightAlpha,
                                            FieldOrder fieldOrder) {
  const auto format = static_cast<AVPixelFormat>(pixelFormat);
  std::unique_ptr<EncoderInput> input(new EncoderInput());
  input->straightAlpha_ = straightAlpha;
  const std::string outOfMemory =
      "out of memory for a " + std::to_string(width) + "x" + std::to_string(height) + " frame";
  for (AVFrame*& frame : input->frames_) {
    frame = av_frame_alloc();
    if (frame == nullptr) {
      return {nullptr, outOfMemory};
    }
    frame->interlaced_frame = fieldOrder != FieldOrder::Progressive;
    frame->top_field_first = fieldOrder == FieldOrder::UpperFirst;
    frame->format = format;
    frame->width = width;
    frame->height = height;
    if (av_frame_get_buffer(frame, 0) < 0) {
      return {nullptr, outOfMemory};
    }
  }
  // Straight-alpha formats of 8-bit BGRA or ARGB are filled in place; the others are converted from a
  // BGRA staging frame.
  if (straightAlpha && format == AV_PIX_FMT_ARGB) {
    input->directOrder_ = PngWriter::ChannelOrder::ARGB;
  } else if (straightAlpha && format == AV_PIX_FMT_BGRA) {
    input->directOrder_ = PngWriter::ChannelOrder::BGRA;
  }
  if (input->directOrder_) {
    return {std::move(input), {}};
  }
  input->staging_ = av_frame_alloc();
  if (input->staging_ == nullptr) {
    return {nullptr, outOfMemory};
  }
  input->staging_->format = AV_PIX_FMT_BGRA;
  input->staging_->width = width;
  input->staging_->height = height;
  if (av_frame_get_buffer(input->staging_, 0) < 0) {
    return {nullptr, outOfMemory};
  }
  input->converter_ = sws_getContext(width, height, AV_PIX_FMT_BGRA, width, height, format, SWS_POINT,
                                     nullptr, nullptr, nullptr);
  if (input->converter_ == nullptr) {
    return {nullptr, "no pixel conversion to the encoder's format"};
  }
  return {std::move(input), {}};
}

EncoderInput::~EncoderInput() {
  av_frame_free(&staging_);
  for (AVFrame*& frame : frames_) {
    av_frame_free(&frame);
  }
  sws_freeContext(converter_);
}

AVFrame* EncoderInput::fill(const PixelBufferView& frame) {
  AVFrame* const next = av_frame_is_writable(frames_[0]) != 0 ? frames_[0] : frames_[1];
  if (av_frame_make_writable(next) < 0 || (staging_ != nullptr && av_frame_make_writable(staging_) < 0)) {
    return nullptr;
  }
  AVFrame* rows = directOrder_ ? next : staging_;
  for (int y = 0; y < frame.height; ++y) {
    const std::uint8_t* source = frame.bytes + static_cast<std::size_t>(y) * frame.rowBytes;
    std::uint8_t* target = rows->data[0] + static_cast<std::ptrdiff_t>(y) * rows->linesize[0];
    if (straightAlpha_) {
      PngWriter::unpremultiplyRow(source, target, frame.width,
                                  directOrder_.value_or(PngWriter::ChannelOrder::BGRA));
    } else {
      std::copy_n(source, static_cast<std::size_t>(frame.width) * 4, target);
    }
  }
  if (!directOrder_) {
    sws_scale(converter_, staging_->data, staging_->linesize, 0, frame.height, next->data, next->linesize);
  }
  return next;
}

}  // namespace qva
