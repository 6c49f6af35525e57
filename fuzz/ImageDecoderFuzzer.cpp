// Feeds arbitrary bytes to the image decoder. A picture it accepts must be whole: a positive size within
// the limit, every row readable, and premultiplied (no colour above its alpha).
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "foundation/image/ImageDecoder.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const qva::ImageDecoder::Result result = qva::ImageDecoder::decode(data, size);
  if (!result.bitmap) {
    if (result.error.empty()) {
      std::abort();
    }
    return 0;
  }
  const qva::Bitmap& bitmap = *result.bitmap;
  const auto width = static_cast<std::size_t>(bitmap.width());
  const auto height = static_cast<std::size_t>(bitmap.height());
  if (width == 0 || height == 0 || width * height > qva::ImageDecoder::maximumPixels) {
    std::abort();
  }
  for (std::size_t y = 0; y < height; ++y) {
    const std::uint8_t* row = bitmap.row(static_cast<int>(y));
    for (std::size_t x = 0; x < width; ++x) {
      const std::uint8_t* pixel = row + x * 4;
      if (pixel[0] > pixel[3] || pixel[1] > pixel[3] || pixel[2] > pixel[3]) {
        std::abort();
      }
    }
  }
  return 0;
}
