#include "host/FrameRenderer.h"

#include <algorithm>

namespace qva {

FrameRenderer::FrameRenderer(Renderer& renderer, ExecutionContext& context, Color background,
                             double frameRate, FieldOrder fieldOrder)
    : renderer_(renderer),
      context_(context),
      background_(background),
      frameRate_(frameRate),
      fieldOrder_(fieldOrder) {}

Arguments FrameRenderer::fieldArguments(bool lowerField, bool firstField) {
  return Arguments{
      {"interlaceField", lowerField ? 1 : 0}, {"firstField", firstField}, {"opacity", 1.0}, {"alpha", 1.0}};
}

std::string FrameRenderer::render(long long index, const Scene& scene, Bitmap& frame) {
  const double time = static_cast<double>(index) / frameRate_;
  const bool interlaced = fieldOrder_ != FieldOrder::Progressive;
  const bool lowerFirst = fieldOrder_ == FieldOrder::LowerFirst;
  renderer_.beginFrame(context_, background_);
  scene(time, interlaced ? fieldArguments(lowerFirst, true) : Arguments());
  renderer_.readFrame(frame.bytes(), frame.rowBytes());
  if (!interlaced) {
    return {};
  }

  if (!secondField_) {
    secondField_ = Bitmap::allocate(frame.width(), frame.height(), frame.rowBytes());
    if (!secondField_) {
      return "out of memory for the second field of a frame";
    }
  }
  renderer_.beginFrame(context_, background_);
  scene(time + 0.5 / frameRate_, fieldArguments(!lowerFirst, false));
  renderer_.readFrame(secondField_->bytes(), secondField_->rowBytes());
  const std::size_t length = static_cast<std::size_t>(frame.width()) * 4;
  for (int y = lowerFirst ? 0 : 1; y < frame.height(); y += 2) {
    std::copy_n(secondField_->row(y), length, frame.row(y));
  }
  return {};
}

}  // namespace qva
