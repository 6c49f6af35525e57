#include "patches/render/QCCirclePlugIn.h"

namespace qva {

const PatchClass& QCCirclePlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QCCirclePlugIn";
    c.name = "QVA Circle";
    c.description = "Displays a circle with an optional outline.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = commonInputs(true, 200);
    c.outputs = {outputImagePort()};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QCCirclePlugIn>(); };
    return c;
  }();
  return patchClass;
}

VectorPath QCCirclePlugIn::shapePath(const Geometry& geometry) const {
  const Frame frame = outlineFrame(geometry);
  VectorPath path;
  path.appendOval(frame.x, frame.y, frame.width, frame.height);
  return path;
}

}  // namespace qva
