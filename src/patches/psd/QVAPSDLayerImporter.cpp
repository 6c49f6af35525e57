#include "patches/psd/QVAPSDLayerImporter.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include "foundation/encodings/StringEncodings.h"
#include "foundation/image/Bitmap.h"
#include "foundation/psd/PsdReader.h"
#include "framework/PathAdditions.h"

namespace qva {

QVAPSDLayerImporter::QVAPSDLayerImporter(std::optional<std::string> path, bool flippedCoordinates)
    : path_(std::move(path)), flippedCoordinates_(flippedCoordinates) {}

std::unique_ptr<QVAPSDLayerImporter> QVAPSDLayerImporter::layerImporterWithPath(const std::string& path,
                                                                                bool flippedCoordinates,
                                                                                std::string* error) {
  std::error_code code;
  if (!std::filesystem::is_regular_file(path, code)) {
    if (error != nullptr) {
      *error = "no document at " + path;
    }
    return nullptr;
  }
  std::ifstream file(path, std::ios::binary);
  const std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(file)), {});
  std::unique_ptr<QVAPSDLayerImporter> importer = layerImporterWithData(bytes, flippedCoordinates, error);
  if (importer) {
    importer->path_ = path;
  }
  return importer;
}

std::unique_ptr<QVAPSDLayerImporter> QVAPSDLayerImporter::layerImporterWithData(
    std::span<const std::uint8_t> data, bool flippedCoordinates, std::string* error) {
  if (data.empty()) {
    if (error != nullptr) {
      *error = "the document is empty";
    }
    return nullptr;
  }
  const PsdReader::Result result = PsdReader::read(data);
  if (!result.document) {
    if (error != nullptr) {
      *error = result.error;
    }
    return nullptr;
  }
  std::unique_ptr<QVAPSDLayerImporter> importer(new QVAPSDLayerImporter(std::nullopt, flippedCoordinates));
  importer->loadPSDFromData(*result.document);
  return importer;
}

void QVAPSDLayerImporter::loadPSDFromData(const PsdDocument& document) {
  imageSize_ = {static_cast<float>(document.width()), static_cast<float>(document.height())};
  std::vector<QVAPSDLayer> layers;
  const std::size_t count = document.imageCount();
  if (count == 1) {
    layers.emplace_back(document.composite(), "Layer", QVAPSDPoint{0, 0}, 1.0f, true);
  }
  // Image 1 is the composite; the walk goes down from the topmost layer, whose metadata index is 1.
  for (std::size_t imageIndex = count; count >= 2 && imageIndex >= 2; --imageIndex) {
    const std::size_t index = count - imageIndex + 1;
    const PsdLayerRecord& layer = *document.layerAtImageIndex(imageIndex);
    const std::optional<std::string> opacity = document.metadataItem("lopa", index);
    const std::optional<std::string> unicodeName = document.metadataItem("luni", index);
    const std::optional<std::string> flags = document.metadataItem("lflg", index);
    // A layer without its name or flags ends the load, and what was read so far is dropped.
    if (!unicodeName || !flags || flags->empty()) {
      return;
    }
    const auto naturalHeight = static_cast<float>(layer.pixels ? layer.pixels->height() : 0);
    const auto tx = static_cast<float>(layer.bounds.left);
    const auto ty = static_cast<float>(layer.bounds.top);
    const float originY = flippedCoordinates_ ? ty : imageSize_.height - (ty + naturalHeight);
    const auto opacityByte = static_cast<std::uint8_t>(opacity && !opacity->empty() ? (*opacity)[0] : 0);
    ImageRef image = layer.pixels;
    if (!image) {
      // Groups and empty layers have no pixels; they keep their place in the list with an empty image.
      image = std::move(*Bitmap::allocate(0, 0, Bitmap::paddedRowBytes(0))).toImage();
    }
    layers.emplace_back(std::move(image),
                        StringEncodings::decode(*unicodeName, "UTF-16BE").value_or(layer.name),
                        QVAPSDPoint{tx, originY}, static_cast<float>(opacityByte) / 255.0f,
                        isVisibleFlags(static_cast<std::uint8_t>((*flags)[0])));
  }
  layers_ = std::move(layers);
}

std::string QVAPSDLayerImporter::filename() const {
  if (!path_) {
    return "";
  }
  const std::string last = lastPathComponent(*path_);
  const std::size_t dot = last.rfind('.');
  return dot == std::string::npos || dot == 0 ? last : last.substr(0, dot);
}

std::string QVAPSDLayerImporter::description() const {
  std::string text = "<QVAPSDLayerImporter> path: " + path_.value_or("(null)") +
                     ", layer count: " + std::to_string(layerCount()) + ", layers:\n(";
  if (layers_) {
    for (const QVAPSDLayer& layer : *layers_) {
      text += "\n    " + layer.description();
    }
  }
  return text + "\n)";
}

}  // namespace qva
