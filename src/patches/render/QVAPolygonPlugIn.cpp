#include "patches/render/QVAPolygonPlugIn.h"

#include <cmath>

namespace qva {

const PatchClass& QVAPolygonPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAPolygonPlugIn";
    c.name = "QVA Polygon";
    c.description = "Draws a polygon consisting of an arbitrary number of edges with an optional outline.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = commonInputs(true, 200);
    c.inputs.push_back(
        PortDescription::port("inputEdgeCount", PortType::Index, "Edge Count", Value(std::uint32_t{5})));
    c.inputs.push_back(
        PortDescription::port("inputRoundedEdges", PortType::Boolean, "Rounded Edges", Value(true)));
    c.outputs = {outputImagePort()};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVAPolygonPlugIn>(); };
    return c;
  }();
  return patchClass;
}

VectorPath QVAPolygonPlugIn::shapePath(const Geometry& geometry) const {
  VectorPath path;
  const std::uint32_t edges = inputIndex("inputEdgeCount");
  if (edges < 3) {
    return path;
  }
  if (inputBoolean("inputRoundedEdges")) {
    path.setLineJoin(VectorPath::LineJoin::Round);
  }
  // The angles are stepped in single precision from 2π downwards, so the polygon is traced clockwise
  // from the vertex on the right and its last vertex lands almost exactly on the first.
  const float twoPi = 6.2831855f;
  const float step = twoPi / static_cast<float>(edges);
  const double cx = geometry.width / 2.0;
  const double cy = geometry.height / 2.0;
  // The full outline width comes off the radii, whatever that width is.
  const double inset = geometry.drawOutline ? geometry.outlineWidth : 0.0;
  const double rx = cx - inset;
  const double ry = cy - inset;
  float angle = twoPi;
  path.moveTo(static_cast<float>(cx + rx * std::cos(static_cast<double>(angle))),
              static_cast<float>(cy + ry * std::sin(static_cast<double>(angle))));
  for (std::uint32_t k = 1; k <= edges; ++k) {
    angle -= step;
    path.lineTo(static_cast<float>(cx + rx * std::cos(static_cast<double>(angle))),
                static_cast<float>(cy + ry * std::sin(static_cast<double>(angle))));
  }
  path.close();
  return path;
}

}  // namespace qva
