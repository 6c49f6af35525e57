#include "patches/render/QVARoundedRectPlugIn.h"

namespace qva {

const PatchClass& QVARoundedRectPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVARoundedRectPlugIn";
    c.name = "QVA Rounded Rectangle";
    c.description = "Displays a rectangle with rounded corners and an optional outline.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    // The only shape that starts without an outline.
    c.inputs = commonInputs(false, 200);
    c.inputs.push_back(PortDescription::port("inputCornerRadiusX", PortType::Index, "Corner Radius X",
                                             Value(std::uint32_t{20})));
    c.inputs.push_back(PortDescription::port("inputCornerRadiusY", PortType::Index, "Corner Radius Y",
                                             Value(std::uint32_t{20})));
    c.outputs = {outputImagePort()};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVARoundedRectPlugIn>(); };
    return c;
  }();
  return patchClass;
}

VectorPath QVARoundedRectPlugIn::shapePath(const Geometry& geometry) const {
  const Frame frame = outlineFrame(geometry);
  VectorPath path;
  path.appendRoundedRect(frame.x, frame.y, frame.width, frame.height,
                         static_cast<float>(inputIndex("inputCornerRadiusX")),
                         static_cast<float>(inputIndex("inputCornerRadiusY")));
  return path;
}

}  // namespace qva
