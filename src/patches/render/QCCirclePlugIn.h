#pragma once

#include "patches/render/QVAShapePlugIn.h"

namespace qva {

// "QVA Circle": the ellipse filling the image, its outline kept inside.
class QCCirclePlugIn final : public QVAShapePlugIn {
 public:
  static const PatchClass& patchClass();
  QCCirclePlugIn() : QVAShapePlugIn(patchClass()) {}

 protected:
  VectorPath shapePath(const Geometry& geometry) const override;
};

}  // namespace qva
