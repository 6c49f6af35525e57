#include "patches/richtext/RichTextBitmap.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "framework/ProcessLog.h"
#include "framework/StringFormat.h"

namespace qva {

std::optional<Bitmap> RichTextBitmap::allocate(std::uint32_t logicalWidth, std::uint32_t logicalHeight,
                                               const ExecutionContext& context, const std::string& origin) {
  const auto pixels = [&context](std::uint32_t side) {
    return static_cast<std::uint32_t>(
        std::min(context.outputPixels(side), static_cast<double>(std::numeric_limits<std::uint32_t>::max())));
  };
  const std::uint32_t width = pixels(logicalWidth);
  const std::uint32_t height = pixels(logicalHeight);
  constexpr auto kLargestSide = static_cast<std::uint32_t>(std::numeric_limits<int>::max());
  std::optional<Bitmap> bitmap;
  if (width <= kLargestSide && height <= kLargestSide) {
    bitmap =
        Bitmap::allocate(static_cast<int>(width), static_cast<int>(height), Bitmap::paddedRowBytes(width));
  }
  if (!bitmap) {
    const double mebibytes = static_cast<double>(Bitmap::paddedRowBytes(width)) * height / (1 << 20);
    ProcessLog::write(
        formatString("%s no image: %ux%u pixels (%.0f MiB) cannot be allocated; an image takes at "
                     "most %zu MiB",
                     origin.c_str(), width, height, std::ceil(mebibytes), Bitmap::maximumBytes >> 20));
  }
  return bitmap;
}

}  // namespace qva
