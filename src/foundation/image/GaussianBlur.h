#pragma once

#include <cstddef>
#include <cstdint>

namespace qva {

// A Gaussian blur of 8-bit coverage, approximated by three box blurs in each direction (within a few
// percent of the true curve), in time independent of the radius.
class GaussianBlur {
 public:
  // Blurs the plane in place with the standard deviation sigma (pixels); pixels outside count as 0.
  static void blurAlpha(std::uint8_t* pixels, int width, int height, std::size_t rowBytes, double sigma);
};

}  // namespace qva
