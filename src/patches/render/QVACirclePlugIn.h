#pragma once

#include "patches/render/QVAShapePlugIn.h"

namespace qva {

// "QVA Circle": the ellipse filling the image, its outline kept inside.
class QVACirclePlugIn final : public QVAShapePlugIn {
 public:
  static const PatchClass& patchClass();
  QVACirclePlugIn() : QVAShapePlugIn(patchClass()) {}

 protected:
  VectorPath shapePath(const Geometry& geometry) const override;
};

}  // namespace qva
