#pragma once

#include "patches/render/QVAShapePlugIn.h"

namespace qva {

// "QVA Polygon": a regular polygon of any number of edges, drawn clockwise from the right.
class QVAPolygonPlugIn final : public QVAShapePlugIn {
 public:
  static const PatchClass& patchClass();
  QVAPolygonPlugIn() : QVAShapePlugIn(patchClass()) {}

 protected:
  VectorPath shapePath(const Geometry& geometry) const override;
};

}  // namespace qva
