#include "patches/render/QVASkewedRectanglePlugIn.h"

#include <cmath>
#include <numbers>

namespace qva {

const PatchClass& QVASkewedRectanglePlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVASkewedRectanglePlugIn";
    c.name = "QVA Skewed Rectangle";
    c.description = "Displays a skewed rectangle with rounded corners and an optional outline.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = commonInputs(true, 250);
    c.inputs.push_back(
        PortDescription::port("inputRoundedEdges", PortType::Boolean, "Rounded Edges", Value(true)));
    c.inputs.push_back(PortDescription::port("inputSkewAngle", PortType::Number, "Skew Angle", Value(15.0)));
    c.outputs = {outputImagePort()};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVASkewedRectanglePlugIn>(); };
    return c;
  }();
  return patchClass;
}

const PortAttributes* QVASkewedRectanglePlugIn::attributesForPropertyPortWithKey(const std::string& key) {
  static const PortAttributes cornerRadius{"Corner Radius", Value(std::uint32_t{20}), {}, {}, {}, {}};
  if (key == "inputCornerRadius") {
    return &cornerRadius;
  }
  return patchClass().attributesForPropertyPortWithKey(key);
}

VectorPath QVASkewedRectanglePlugIn::shapePath(const Geometry& geometry) const {
  VectorPath path;
  const double angle = inputNumber("inputSkewAngle");
  if (!(angle >= 0 && angle <= 45)) {
    return path;
  }
  const double theta = angle * std::numbers::pi / 180;
  if (inputBoolean("inputRoundedEdges")) {
    path.setLineJoin(VectorPath::LineJoin::Round);
  }
  const double w = geometry.width;
  const double h = geometry.height;
  const double run = h * std::tan(theta);
  const auto point = [&path](bool move, double x, double y) {
    if (move) {
      path.moveTo(static_cast<float>(x), static_cast<float>(y));
    } else {
      path.lineTo(static_cast<float>(x), static_cast<float>(y));
    }
  };
  if (geometry.drawOutline) {
    // Rounded up here but truncated without an outline: the two branches differ on purpose.
    const double s = static_cast<double>(static_cast<long long>(std::ceil(run)));
    const double ow = geometry.outlineWidth;
    const double d = ow / std::tan((std::numbers::pi - theta) / 2);
    const double half = ow / 2;
    point(true, half + d, half);
    point(false, half + d + s, h - half);
    point(false, w - half - d, h - half);
    point(false, w - half - d - s, half);
  } else {
    const auto s = static_cast<std::uint32_t>(run);
    point(true, 0, 0);
    point(false, s, h);
    point(false, w, h);
    point(false, static_cast<std::uint32_t>(geometry.width - s), 0);
  }
  path.close();
  return path;
}

}  // namespace qva
