#include "foundation/psd/PsdDocument.h"

namespace qva {

PsdDocument::PsdDocument(int width, int height, int depth, ColorMode mode, ImageRef composite,
                         std::vector<PsdLayerRecord> layers, std::vector<ImageResource> resources)
    : width_(width),
      height_(height),
      depth_(depth),
      colorMode_(mode),
      composite_(std::move(composite)),
      layers_(std::move(layers)),
      resources_(std::move(resources)) {}

const PsdLayerRecord* PsdDocument::layerAtImageIndex(std::size_t index) const {
  if (index < 2 || index - 2 >= layers_.size()) {
    return nullptr;
  }
  return &layers_[index - 2];
}

std::optional<std::string> PsdDocument::metadataItem(const std::string& type, std::size_t index) const {
  if (index < 1 || index > layers_.size()) {
    return std::nullopt;
  }
  const PsdLayerRecord& layer = layers_[layers_.size() - index];
  if (type == "lopa") {
    return std::string(1, static_cast<char>(layer.opacity));
  }
  if (type == "lflg") {
    return std::string(1, static_cast<char>(layer.flags));
  }
  if (type == "luni") {
    return layer.unicodeNameBytes;
  }
  return std::nullopt;
}

}  // namespace qva
