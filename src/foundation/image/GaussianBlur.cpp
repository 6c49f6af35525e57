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

// The plane turned on its side: source rows become destination columns, in blocks that stay in cache.
void transpose(const std::uint8_t* source, std::size_t sourceRowBytes, int width, int height,
               std::uint8_t* destination, std::size_t destinationRowBytes) {
  constexpr int kBlock = 32;
  for (int y0 = 0; y0 < height; y0 += kBlock) {
    for (int x0 = 0; x0 < width; x0 += kBlock) {
      for (int y = y0; y < std::min(y0 + kBlock, height); ++y) {
        const std::uint8_t* row = source + static_cast<std::size_t>(y) * sourceRowBytes;
        for (int x = x0; x < std::min(x0 + kBlock, width); ++x) {
          destination[static_cast<std::size_t>(x) * destinationRowBytes + static_cast<std::size_t>(y)] =
              row[x];
        }
      }
    }
  }
}

// One box blur down each column, with zero outside; the columns advance together row by row, so that
// memory is read in order and the compiler can run many columns at once (hence the restrict pointers
// and a multiplication where a division would stop it).
void boxBlurColumns(std::uint8_t* pixels, int width, int height, std::size_t rowBytes, int radius,
                    std::vector<std::uint8_t>& source, std::vector<int>& sums) {
  const float inverseSpan = 1.0F / static_cast<float>(2 * radius + 1);
  const auto columns = static_cast<std::size_t>(width);
  // The rows as they were, and one row of zeros after them for the rows outside.
  source.assign(columns * (static_cast<std::size_t>(height) + 1), 0);
  for (int y = 0; y < height; ++y) {
    const std::uint8_t* row = pixels + static_cast<std::size_t>(y) * rowBytes;
    std::copy(row, row + width,
              source.begin() + static_cast<std::ptrdiff_t>(columns * static_cast<std::size_t>(y)));
  }
  auto sourceRow = [&](int y) {
    return source.data() + columns * static_cast<std::size_t>(y >= 0 && y < height ? y : height);
  };
  sums.assign(columns, 0);
  int* __restrict sum = sums.data();
  for (int y = 0; y < std::min(radius, height); ++y) {
    const std::uint8_t* __restrict entering = sourceRow(y);
    for (std::size_t x = 0; x < columns; ++x) {
      sum[x] += entering[x];
    }
  }
  for (int y = 0; y < height; ++y) {
    const std::uint8_t* __restrict entering = sourceRow(y + radius);
    const std::uint8_t* __restrict leaving = sourceRow(y - radius - 1);
    std::uint8_t* __restrict row = pixels + static_cast<std::size_t>(y) * rowBytes;
    for (std::size_t x = 0; x < columns; ++x) {
      sum[x] += entering[x] - leaving[x];
      row[x] = static_cast<std::uint8_t>(static_cast<float>(sum[x]) * inverseSpan + 0.5F);
    }
  }
}

}  // namespace

void GaussianBlur::blurAlpha(std::uint8_t* pixels, int width, int height, std::size_t rowBytes,
                             double sigma) {
  if (pixels == nullptr || width <= 0 || height <= 0 || !(sigma > 0.2)) {
    return;
  }
  // Box blurs down the columns run all columns at once; the rows are blurred as the columns of the
  // plane turned on its side.
  const std::array<int, 3> radii = boxRadii(std::min(sigma, 1000.0));
  std::vector<std::uint8_t> source;
  std::vector<int> sums;
  for (int radius : radii) {
    if (radius > 0) {
      boxBlurColumns(pixels, width, height, rowBytes, radius, source, sums);
    }
  }
  const auto turnedRowBytes = static_cast<std::size_t>(height);
  std::vector<std::uint8_t> turned(turnedRowBytes * static_cast<std::size_t>(width));
  transpose(pixels, rowBytes, width, height, turned.data(), turnedRowBytes);
  for (int radius : radii) {
    if (radius > 0) {
      boxBlurColumns(turned.data(), height, width, turnedRowBytes, radius, source, sums);
    }
  }
  transpose(turned.data(), turnedRowBytes, height, width, pixels, rowBytes);
}

}  // namespace qva
