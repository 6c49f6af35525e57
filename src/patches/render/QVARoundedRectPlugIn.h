#pragma once

#include "patches/render/QVAShapePlugIn.h"

namespace qva {

// "QVA Rounded Rectangle": the image-filling rectangle with elliptical corners.
class QVARoundedRectPlugIn final : public QVAShapePlugIn {
 public:
  static const PatchClass& patchClass();
  QVARoundedRectPlugIn() : QVAShapePlugIn(patchClass()) {}

 protected:
  VectorPath shapePath(const Geometry& geometry) const override;
};

}  // namespace qva
