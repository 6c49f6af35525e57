#include "patches/files/QVAImageLoaderPlugIn.h"

#include <filesystem>

#include "foundation/image/ImageDecoder.h"

namespace qva {

const PatchClass& QVAImageLoaderPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAImageLoaderPlugIn";
    c.name = "QVA Image Loader";
    c.description =
        "A replacement plugin for the standard image downloader plugin, only works with local files";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = {PortDescription::port("inputPath", PortType::String, "Image Path")};
    c.outputs = {
        PortDescription::port("outputImage", PortType::Image, "Image"),
        PortDescription::port("outputImageLoaded", PortType::Boolean, "Image Loaded"),
        PortDescription::port("outputWidth", PortType::Number, "Width"),
        PortDescription::port("outputHeight", PortType::Number, "Height"),
        PortDescription::port("outputPixelsWide", PortType::Index, "Pixels Wide"),
        PortDescription::port("outputPixelsHigh", PortType::Index, "Pixels High"),
    };
    c.sortedPropertyPortKeys =
        std::vector<std::string>{"inputPath",    "outputImage",      "outputImageLoaded", "outputWidth",
                                 "outputHeight", "outputPixelsWide", "outputPixelsHigh"};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVAImageLoaderPlugIn>(); };
    return c;
  }();
  return patchClass;
}

double QVAImageLoaderPlugIn::executionTimeForContext(ExecutionContext& /*context*/, double time,
                                                     const Arguments& /*arguments*/) {
  return time;
}

bool QVAImageLoaderPlugIn::execute(ExecutionContext& context, double /*time*/,
                                   const Arguments& /*arguments*/) {
  if (!didValueForInputKeyChange("inputPath")) {
    return true;
  }
  // Every failure is silent and keeps the previous outputs, image included.
  const std::string path = context.resolvePath(inputString("inputPath"));
  std::error_code error;
  if (!std::filesystem::exists(path, error) || std::filesystem::is_directory(path, error)) {
    return true;
  }
  auto decoded = ImageDecoder::decodeFile(path, &Bitmap::alignedRowBytes);
  if (!decoded.bitmap) {
    // A picture refused for its size looks like any other to the user, so it is named in the log.
    if (decoded.tooLarge) {
      logMessage(decoded.error);
    }
    return true;
  }
  const auto w = static_cast<std::uint32_t>(decoded.bitmap->width());
  const auto h = static_cast<std::uint32_t>(decoded.bitmap->height());
  // The host's viewport in pixels and bounds in units, so that the image maps a texel to a pixel.
  const PixelSize& viewport = context.viewport();
  const Rect& bounds = context.bounds();
  const float unitWidth = viewport.width > 0 ? static_cast<float>(w) / static_cast<float>(viewport.width) *
                                                   static_cast<float>(bounds.width)
                                             : 0.0f;
  const float unitHeight = viewport.height > 0 ? static_cast<float>(h) / static_cast<float>(viewport.height) *
                                                     static_cast<float>(bounds.height)
                                               : 0.0f;
  setValueForOutputKey(Value(w), "outputPixelsWide");
  setValueForOutputKey(Value(h), "outputPixelsHigh");
  setValueForOutputKey(Value(static_cast<double>(unitWidth)), "outputWidth");
  setValueForOutputKey(Value(static_cast<double>(unitHeight)), "outputHeight");
  setValueForOutputKey(Value(std::move(*decoded.bitmap).toImage()), "outputImage");
  setValueForOutputKey(Value(true), "outputImageLoaded");
  return true;
}

}  // namespace qva
