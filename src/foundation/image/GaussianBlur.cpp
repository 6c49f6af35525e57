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

// One box blur along each row, with zero outside the row.
void boxBlurRows(std::uint8_t* pixels, int width, int height, std::size_t rowBytes, int radius,
                 std::vector<std::uint8_t>& line) {
  const int span = 2 * radius + 1;
  for (int y = 0; y < height; ++y) {
    std::uint8_t* row = pixels + static_cast<std::size_t>(y) * rowBytes;
    line.assign(row, row + width);
    int sum = 0;
    for (int x = 0; x < std::min(radius, width); ++x) {
      sum += line[static_cast<std::size_t>(x)];
    }
    for (int x = 0; x < width; ++x) {
      if (x + radius < width) {
        sum += line[static_cast<std::size_t>(x + radius)];
      }
      if (x - radius - 1 >= 0) {
        sum -= line[static_cast<std::size_t>(x - radius - 1)];
      }
      row[x] = static_cast<std::uint8_t>((sum + span / 2) / span);
    }
  }
}

// One box blur down each column, with zero outside; the columns advance together row by row, so that
// memory is read in order.
void boxBlurColumns(std::uint8_t* pixels, int width, int height, std::size_t rowBytes, int radius,
                    std::vector<std::uint8_t>& source, std::vector<int>& sums) {
  const int span = 2 * radius + 1;
  const auto columns = static_cast<std::size_t>(width);
  source.resize(columns * static_cast<std::size_t>(height));
  for (int y = 0; y < height; ++y) {
    const std::uint8_t* row = pixels + static_cast<std::size_t>(y) * rowBytes;
    std::copy(row, row + width,
              source.begin() + static_cast<std::ptrdiff_t>(columns * static_cast<std::size_t>(y)));
  }
  auto sourceRow = [&](int y) { return source.data() + columns * static_cast<std::size_t>(y); };
  sums.assign(columns, 0);
  for (int y = 0; y < std::min(radius, height); ++y) {
    const std::uint8_t* entering = sourceRow(y);
    for (std::size_t x = 0; x < columns; ++x) {
      sums[x] += entering[x];
    }
  }
  for (int y = 0; y < height; ++y) {
    if (y + radius < height) {
      const std::uint8_t* entering = sourceRow(y + radius);
      for (std::size_t x = 0; x < columns; ++x) {
        sums[x] += entering[x];
      }
    }
    if (y - radius - 1 >= 0) {
      const std::uint8_t* leaving = sourceRow(y - radius - 1);
      for (std::size_t x = 0; x < columns; ++x) {
        sums[x] -= leaving[x];
      }
    }
    std::uint8_t* row = pixels + static_cast<std::size_t>(y) * rowBytes;
    for (std::size_t x = 0; x < columns; ++x) {
      row[x] = static_cast<std::uint8_t>((sums[x] + span / 2) / span);
    }
  }
}

}  // namespace

void GaussianBlur::blurAlpha(std::uint8_t* pixels, int width, int height, std::size_t rowBytes,
                             double sigma) {
  if (pixels == nullptr || width <= 0 || height <= 0 || !(sigma > 0.2)) {
    return;
  }
  std::vector<std::uint8_t> line;
  std::vector<int> sums;
  for (int radius : boxRadii(std::min(sigma, 1000.0))) {
    if (radius > 0) {
      boxBlurRows(pixels, width, height, rowBytes, radius, line);
      boxBlurColumns(pixels, width, height, rowBytes, radius, line, sums);
    }
  }
}

}  // namespace qva
