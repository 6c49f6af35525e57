#include "patches/render/QVAShapePlugIn.h"

#include <limits>
#include <string>

#include "foundation/image/Bitmap.h"
#include "framework/Image.h"
#include "framework/ProcessLog.h"

namespace qva {

std::vector<PortDescription> QVAShapePlugIn::commonInputs(bool drawOutlineDefault,
                                                          std::uint32_t widthDefault) {
  return {
      PortDescription::port("inputFillColor", PortType::Color, "Fill Color", Value(Color{1, 0, 0, 1})),
      PortDescription::port("inputOutlineColor", PortType::Color, "Outline Color", Value(Color{0, 0, 1, 1})),
      PortDescription::port("inputDrawOutline", PortType::Boolean, "Draw Outline", Value(drawOutlineDefault)),
      PortDescription::port("inputOutlineWidth", PortType::Number, "Outline Width", Value(5.0)),
      PortDescription::port("inputDrawFill", PortType::Boolean, "Draw Fill", Value(true)),
      PortDescription::port("inputWidth", PortType::Index, "Width", Value(widthDefault)),
      PortDescription::port("inputHeight", PortType::Index, "Height", Value(std::uint32_t{200})),
  };
}

QVAShapePlugIn::Frame QVAShapePlugIn::outlineFrame(const Geometry& geometry) {
  const double w = geometry.width;
  const double h = geometry.height;
  const double ow = geometry.outlineWidth;
  if (geometry.drawOutline && ow > 1.0) {
    return {static_cast<float>(ow / 2), static_cast<float>(ow / 2), static_cast<float>(w - ow),
            static_cast<float>(h - ow)};
  }
  return {0, 0, static_cast<float>(w), static_cast<float>(h)};
}

PortDescription QVAShapePlugIn::outputImagePort() {
  return PortDescription::port("outputImage", PortType::Image, "Image");
}

bool QVAShapePlugIn::execute(ExecutionContext& context, double /*time*/, const Arguments& /*arguments*/) {
  const Geometry geometry{inputIndex("inputWidth"), inputIndex("inputHeight"),
                          inputNumber("inputOutlineWidth"), inputBoolean("inputDrawOutline")};
  VectorPath path = shapePath(geometry);
  // The shape is sized in logical pixels and drawn at the output's density.
  path.setScale(context.outputScale());
  const double width = context.outputPixels(geometry.width);
  const double height = context.outputPixels(geometry.height);

  std::optional<Bitmap> bitmap;
  constexpr auto kLargestSide = static_cast<double>(std::numeric_limits<int>::max());
  if (width <= kLargestSide && height <= kLargestSide) {
    bitmap = Bitmap::allocate(static_cast<int>(width), static_cast<int>(height),
                              Bitmap::paddedRowBytes(static_cast<std::uint32_t>(width)));
  }
  if (!bitmap) {
    ProcessLog::write(patchClass().name + ": cannot make an image of " + std::to_string(geometry.width) +
                      "x" + std::to_string(geometry.height) + " pixels");
    setValueForOutputKey(Value(), "outputImage");
    return true;
  }
  // A colour the host could not convert draws as transparent black.
  const Color none{0, 0, 0, 0};
  if (inputBoolean("inputDrawFill")) {
    path.fill(*bitmap, valueForInputKey("inputFillColor").colorValue().value_or(none));
  }
  if (geometry.drawOutline) {
    path.setLineWidth(geometry.outlineWidth > 1.0 ? geometry.outlineWidth : 1.0);
    path.stroke(*bitmap, valueForInputKey("inputOutlineColor").colorValue().value_or(none));
  }
  setValueForOutputKey(Value(std::move(*bitmap).toImage(context.outputScale())), "outputImage");
  return true;
}

}  // namespace qva
