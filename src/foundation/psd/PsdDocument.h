#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "foundation/psd/PsdLayerRecord.h"
#include "framework/Image.h"

namespace qva {

// A Photoshop document read into memory: its canvas, the merged composite and its layers.
//
// Besides the layers in file order, it offers them the way a still-image import service does: images
// indexed from 1, where image 1 is the merged composite and images 2 … n are the layers from the bottom
// up, and per-layer metadata items indexed from 1 in the opposite order (1 is the topmost layer). A
// document without layers has one image, the composite. The closing records of groups are not layers;
// the groups themselves are, without pixels.
class PsdDocument {
 public:
  enum class ColorMode : std::uint16_t {
    Bitmap = 0,
    Grayscale = 1,
    Indexed = 2,
    RGB = 3,
    CMYK = 4,
    Multichannel = 7,
    Duotone = 8,
    Lab = 9
  };

  struct ImageResource {
    std::uint16_t id = 0;
    std::string name;
    std::vector<std::uint8_t> data;
  };

  PsdDocument(int width, int height, int depth, ColorMode mode, ImageRef composite,
              std::vector<PsdLayerRecord> layers, std::vector<ImageResource> resources);

  int width() const { return width_; }
  int height() const { return height_; }
  int depth() const { return depth_; }
  ColorMode colorMode() const { return colorMode_; }
  // Premultiplied BGRA pixels of the whole canvas.
  const ImageRef& composite() const { return composite_; }
  // Layers from the bottom up, as the document stores them.
  const std::vector<PsdLayerRecord>& layers() const { return layers_; }
  const std::vector<ImageResource>& imageResources() const { return resources_; }

  // The number of images: 1 for the composite plus one per layer.
  std::size_t imageCount() const { return layers_.size() + 1; }
  // The layer shown as image index (2 … imageCount()); none for the composite or an index out of range.
  const PsdLayerRecord* layerAtImageIndex(std::size_t index) const;
  // A layer's metadata item by type and 1-based index (1 = topmost layer): "lopa" (one byte, opacity),
  // "lflg" (one byte, flags) or "luni" (the Unicode name, UTF-16 big-endian); none for another type or
  // an index out of range.
  std::optional<std::string> metadataItem(const std::string& type, std::size_t index) const;

 private:
  int width_;
  int height_;
  int depth_;
  ColorMode colorMode_;
  ImageRef composite_;
  std::vector<PsdLayerRecord> layers_;
  std::vector<ImageResource> resources_;
};

}  // namespace qva
