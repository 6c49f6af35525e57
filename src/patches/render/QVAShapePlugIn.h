#pragma once

#include <cstdint>
#include <vector>

#include "foundation/image/VectorPath.h"
#include "framework/QVAPlugIn.h"

namespace qva {

// The drawing and output pipeline the four shape patches share: each builds its path, the pipeline
// fills and strokes it into a new transparent bitmap of the requested size and publishes that as a
// BGRA8 buffer image on outputImage.
class QVAShapePlugIn : public QVAPlugIn {
 public:
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

 protected:
  explicit QVAShapePlugIn(const PatchClass& patchClass) : QVAPlugIn(patchClass) {}

  struct Geometry {
    std::uint32_t width;
    std::uint32_t height;
    double outlineWidth;
    bool drawOutline;
  };
  // The shape's path in pixels, origin at the lower-left corner, y up.
  virtual VectorPath shapePath(const Geometry& geometry) const = 0;

  struct Frame {
    float x, y, width, height;
  };
  // The image's rectangle, inset by half the outline width when an outline wider than 1 is drawn so
  // that the centred stroke stays inside the image.
  static Frame outlineFrame(const Geometry& geometry);

  // The ports common to the four shapes, in their order, with the two defaults that differ.
  static std::vector<PortDescription> commonInputs(bool drawOutlineDefault, std::uint32_t widthDefault);
  static PortDescription outputImagePort();
};

}  // namespace qva
