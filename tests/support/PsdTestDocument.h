#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace qva::test {

// A layer of a document written by PsdTestDocument.
struct PsdTestLayer {
  std::string name;
  std::int32_t top = 0;
  std::int32_t left = 0;
  std::int32_t bottom = 0;
  std::int32_t right = 0;
  std::uint8_t opacity = 255;
  std::uint8_t flags = 8;
  std::string blendMode = "norm";
  // Written as a section divider block when set (1, 2 groups, 3 the end of a group).
  std::optional<std::uint32_t> section;
  // Written as a Unicode name block besides the legacy (ASCII) name.
  bool unicodeName = true;
  // Straight-alpha RGBA of the pixel at (x, y) of the layer; grey documents take the red component.
  std::function<std::array<std::uint8_t, 4>(int x, int y)> pixel = [](int, int) {
    return std::array<std::uint8_t, 4>{0, 0, 0, 255};
  };
};

// Writes small Photoshop documents for tests: RGB or greyscale, 8 or 16 bits, channels raw,
// PackBits or deflated, layers listed bottom first. Written from the file format, independently of the
// reader, so that tests check the reader against what the format says.
class PsdTestDocument {
 public:
  enum Compression : std::uint16_t { Raw = 0, Rle = 1, Zip = 2, ZipPredicted = 3 };

  std::uint32_t width = 4;
  std::uint32_t height = 4;
  std::uint16_t depth = 8;
  std::uint16_t colorMode = 3;
  std::uint16_t version = 1;
  std::uint16_t compression = Rle;
  // 16-bit documents keep their layers in a tagged block after the (empty) layer info.
  bool layersInTaggedBlock = false;
  std::vector<PsdTestLayer> layers;
  // The merged picture's straight-alpha RGBA at (x, y).
  std::function<std::array<std::uint8_t, 4>(int x, int y)> composite = [](int, int) {
    return std::array<std::uint8_t, 4>{255, 255, 255, 255};
  };

  std::vector<std::uint8_t> bytes() const;
  // One row in PackBits: runs of two or more equal bytes repeated, the rest literal.
  static std::vector<std::uint8_t> packBits(const std::vector<std::uint8_t>& row);
};

}  // namespace qva::test
