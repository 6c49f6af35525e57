#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "foundation/store/QVADataStore.h"
#include "framework/QVAPlugIn.h"
#include "framework/Structure.h"
#include "patches/psd/QVAPSDLayer.h"

namespace qva {

// "QVA PSD Importer": holds a Photoshop document (embedded or by path), loads its layers and publishes
// each as a layer structure, all together on outputLayers and, when asked, each on a "Layer i" port.
class QVAPSDLayerImporterPlugIn final : public QVAPlugIn {
 public:
  struct TVNorm {
    int width;
    int height;
  };
  static constexpr std::array<TVNorm, 6> kTVNorms = {
      {{1280, 720}, {1920, 1080}, {720, 534}, {788, 576}, {872, 486}, {1050, 576}}};

  static const PatchClass& patchClass();
  QVAPSDLayerImporterPlugIn() : QVAPlugIn(patchClass()) {}

  // A document kept by a relative path without a base is taken from the composition's folder.
  bool startExecution(ExecutionContext& context) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
  PropertyList serializedValueForKey(const std::string& key) const override;
  void setSerializedValueForKey(const PropertyList& value, const std::string& key) override;

  // Loads the document when the store differs from the one held.
  void setPsdData(std::optional<QVADataStore> store);
  // Rebuilds the layer structures from the document and adjusts the ports.
  void loadPSD();
  // Takes the size as the nominal raster; true (and the norm selected, top-left origin on) when it is a
  // TV norm of the table.
  bool setOutputSettingsFromSize(QVAPSDSize size);
  void setSizeOption(std::uint32_t option);
  void setTvNormIndex(std::uint32_t index);
  void setPortForEveryLayer(bool portForEveryLayer);

  QVAPSDSize canvasSize() const { return canvasSize_; }
  std::uint32_t sizeOption() const { return sizeOption_; }
  std::uint32_t tvNormIndex() const { return tvNormIndex_; }
  bool topLeftOrigin() const { return topLeftOrigin_; }
  bool scaleWithViewPort() const { return scaleWithViewPort_; }
  int totalWidth() const { return totalWidth_; }
  int totalHeight() const { return totalHeight_; }

 private:
  void adjustPorts();

  std::optional<QVADataStore> psdData_;
  std::vector<Structure> layers_;
  QVAPSDSize canvasSize_;
  bool topLeftOrigin_ = false;
  bool portForEveryLayer_ = false;
  bool usePixelUnits_ = false;
  bool useCanvasBounds_ = false;
  bool scaleWithViewPort_ = false;
  std::uint32_t sizeOption_ = 0;
  std::uint32_t tvNormIndex_ = 0;
  int totalWidth_ = 0;
  int totalHeight_ = 0;
  std::size_t portCount_ = 0;
  // Why the last document could not be loaded, logged at the next execution.
  std::optional<std::string> loadError_;
};

}  // namespace qva
