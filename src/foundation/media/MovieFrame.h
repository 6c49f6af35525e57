#pragma once

#include <cstddef>
#include <cstdint>

namespace qva {

// A decoded movie frame as BGRA8 pixels, premultiplied where the movie has alpha, rows top to bottom,
// with the movie time at which it starts.
struct MovieFrame {
  int width = 0;
  int height = 0;
  std::size_t rowBytes = 0;
  const std::uint8_t* bytes = nullptr;
  std::int64_t time = 0;
};

}  // namespace qva
