#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "patches/psd/QVAPSDLayer.h"

namespace qva {

class PsdDocument;

// Turns the bytes of a Photoshop document into its canvas size and its layers, topmost first. It walks
// the document as an image import service presents it: image 1 is the composite, images 2 … n the layers
// from the bottom up, and layer metadata is indexed from the topmost layer down.
class QVAPSDLayerImporter {
 public:
  // Nothing when no file (or a directory) is at the path, or the document cannot be read; why goes to
  // error when given.
  static std::unique_ptr<QVAPSDLayerImporter> layerImporterWithPath(const std::string& path,
                                                                    bool flippedCoordinates,
                                                                    std::string* error = nullptr);
  // Nothing for empty data or a document that cannot be read.
  static std::unique_ptr<QVAPSDLayerImporter> layerImporterWithData(std::span<const std::uint8_t> data,
                                                                    bool flippedCoordinates,
                                                                    std::string* error = nullptr);

  // The layers, topmost first; none when loading stopped on a layer without its name or flags.
  const std::optional<std::vector<QVAPSDLayer>>& layers() const { return layers_; }
  const std::optional<std::string>& path() const { return path_; }
  // The canvas size in pixels.
  QVAPSDSize PSDImageSize() const { return imageSize_; }
  // True: origins are top-left based (y down); false: bottom-left based.
  bool flippedCoordinates() const { return flippedCoordinates_; }
  // The last path component without its extension.
  std::string filename() const;
  std::size_t layerCount() const { return layers_ ? layers_->size() : 0; }
  std::string description() const;

  // A layer counts as visible when its flags byte is below 10 or exactly 40.
  static bool isVisibleFlags(std::uint8_t flags) { return flags < 10 || flags == 40; }

 private:
  QVAPSDLayerImporter(std::optional<std::string> path, bool flippedCoordinates);
  void loadPSDFromData(const PsdDocument& document);

  std::optional<std::vector<QVAPSDLayer>> layers_;
  std::optional<std::string> path_;
  QVAPSDSize imageSize_;
  bool flippedCoordinates_;
};

}  // namespace qva
