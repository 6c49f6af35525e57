#pragma once

#include <optional>

namespace qva {

// Where the current projection, modelview and viewport put the z = 0 plane of object coordinates in
// window pixels, when that is an affine map (no perspective):
// window x = xx·x + xy·y + x0, window y = yx·x + yy·y + y0.
struct WindowTransform {
  double xx = 1;
  double xy = 0;
  double yx = 0;
  double yy = 1;
  double x0 = 0;
  double y0 = 0;

  // Nothing when the matrices put the plane in perspective.
  static std::optional<WindowTransform> current();
};

}  // namespace qva
