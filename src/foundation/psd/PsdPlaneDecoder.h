#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace qva {

// Channel data of a document: planes of samples (8 or 16 bits, big-endian) one after another, stored
// raw, PackBits-compressed row by row behind a table of row lengths, or deflated (optionally with
// horizontal differences). The decoder checks the data against the size it claims before it allocates
// anything, so what it allocates stays within a fixed multiple of the bytes it was given.
class PsdPlaneDecoder {
 public:
  enum Compression : std::uint16_t { Raw = 0, Rle = 1, Zip = 2, ZipPredicted = 3 };

  struct Layout {
    std::size_t width = 0;
    std::size_t height = 0;
    int depth = 8;
    // Planes stored in the data; only the first wantedPlanes are decoded.
    std::size_t storedPlanes = 1;
    std::size_t wantedPlanes = 1;
  };

  // The wanted planes, each width × height bytes, 16-bit samples reduced to 8 bits. Throws
  // PsdFormatError for data that does not hold them.
  static std::vector<std::vector<std::uint8_t>> decode(std::span<const std::uint8_t> data,
                                                       std::uint16_t compression, const Layout& layout);

  // A 16-bit sample reduced to 8 bits, rounded to the nearest.
  static std::uint8_t reduceSample(std::uint16_t sample) {
    return static_cast<std::uint8_t>((std::uint32_t{sample} * 255 + 32767) / 65535);
  }
};

}  // namespace qva
