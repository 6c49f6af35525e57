#pragma once

#include "patches/render/QVAShapePlugIn.h"

namespace qva {

// "QVA Skewed Rectangle": a parallelogram whose slanted sides lean right by the skew angle.
class QVASkewedRectanglePlugIn final : public QVAShapePlugIn {
 public:
  static const PatchClass& patchClass();
  // Also answers for inputCornerRadius, an attribute entry without a port that the class keeps.
  static const PortAttributes* attributesForPropertyPortWithKey(const std::string& key);
  QVASkewedRectanglePlugIn() : QVAShapePlugIn(patchClass()) {}

 protected:
  VectorPath shapePath(const Geometry& geometry) const override;
};

}  // namespace qva
