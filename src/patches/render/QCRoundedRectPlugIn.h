#pragma once

#include "patches/render/QVAShapePlugIn.h"

namespace qva {

// "QVA Rounded Rectangle": the image-filling rectangle with elliptical corners.
class QCRoundedRectPlugIn final : public QVAShapePlugIn {
 public:
  static const PatchClass& patchClass();
  QCRoundedRectPlugIn() : QVAShapePlugIn(patchClass()) {}

 protected:
  VectorPath shapePath(const Geometry& geometry) const override;
};

}  // namespace qva
