#include "foundation/image/GaussianBlur.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace qva {

namespace {

// Half-widths of three boxes whose repeated application has the variance of the Gaussian (the usual
// construction: boxes of two neighbouring odd widths, as many of each as matches sigma best).
std::array<int, 3> boxRadii(double sigma) {
  const double n = 3;
  const double ideal = std::sqrt(12 * sigma * sigma / n + 1);
  int lower = static_cast<int>(std::floor(ideal));
  if (lower % 2 == 0) {
    --lower;
  }
  const int upper = lower + 2;
  const double m = (12 * sigma * sigma - n * lower * lower - 4 * n * lower - 3 * n) / (-4 * lower - 4);
  const long smaller = std::lround(m);
  std::array<int, 3> radii{};
  for (int i = 0; i < 3; ++i) {
    radii[static_cast<std::size_t>(i)] = ((i < smaller ? lower : upper) - 1) / 2;
  }
  return radii;
}

// One box blur along a line of count samples spaced stride apart, with zero outside; line holds a copy.
void boxBlurLine(std::uint8_t* samples, std::size_t stride, int count, int radius, std::vector<int>& line) {
  line.assign(static_cast<std::size_t>(count), 0);
  for (int i = 0; i < count; ++i) {
    line[static_cast<std::size_t>(i)] = samples[static_cast<std::size_t>(i) * stride];
  }
  const int width = 2 * radius + 1;
  int sum = 0;
  for (int i = 0; i < std::min(radius, count); ++i) {
    sum += line[static_cast<std::size_t>(i)];
  }
  for (int i = 0; i < count; ++i) {
    const int entering = i + radius;
    const int leaving = i - radius - 1;
    if (entering < count) {
      sum += line[static_cast<std::size_t>(entering)];
    }
    if (leaving >= 0) {
      sum -= line[static_cast<std::size_t>(leaving)];
    }
    samples[static_cast<std::size_t>(i) * stride] = static_cast<std::uint8_t>((sum + width / 2) / width);
  }
}

}  // namespace

void GaussianBlur::blurAlpha(std::uint8_t* pixels, int width, int height, std::size_t rowBytes,
                             double sigma) {
  if (pixels == nullptr || width <= 0 || height <= 0 || !(sigma > 0.2)) {
    return;
  }
  std::vector<int> line;
  for (int radius : boxRadii(std::min(sigma, 1000.0))) {
    if (radius == 0) {
      continue;
    }
    for (int y = 0; y < height; ++y) {
      boxBlurLine(pixels + static_cast<std::size_t>(y) * rowBytes, 1, width, radius, line);
    }
    for (int x = 0; x < width; ++x) {
      boxBlurLine(pixels + x, rowBytes, height, radius, line);
    }
  }
}

}  // namespace qva
