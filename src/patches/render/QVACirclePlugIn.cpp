#include "patches/render/QVACirclePlugIn.h"

namespace qva {

const PatchClass& QVACirclePlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVACirclePlugIn";
    c.name = "QVA Circle";
    c.description = "Displays a circle with an optional outline.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = commonInputs(true, 200);
    c.outputs = {outputImagePort()};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVACirclePlugIn>(); };
    return c;
  }();
  return patchClass;
}

VectorPath QVACirclePlugIn::shapePath(const Geometry& geometry) const {
  const Frame frame = outlineFrame(geometry);
  VectorPath path;
  path.appendOval(frame.x, frame.y, frame.width, frame.height);
  return path;
}

}  // namespace qva
