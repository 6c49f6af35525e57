#include "patches/psd/QVAPSDLayerImporterPlugIn.h"

#include <cmath>

#include "patches/psd/QVAPSDLayerImporter.h"

namespace qva {

namespace {

const std::string kPsdData = "psdData";
const std::string kPsdPath = "psdPath";

bool settingBoolean(const PropertyList& value) {
  return propertyListInteger(value) != 0;
}

std::uint32_t settingIndex(const PropertyList& value) {
  const long long number = propertyListInteger(value);
  return number < 0 ? 0 : static_cast<std::uint32_t>(std::min<long long>(number, UINT32_MAX));
}

int settingInteger(const PropertyList& value) {
  return static_cast<int>(std::clamp<long long>(propertyListInteger(value), INT32_MIN, INT32_MAX));
}

std::string layerPortKey(std::size_t number) {
  return "Layer " + std::to_string(number);
}

}  // namespace

const PatchClass& QVAPSDLayerImporterPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAPSDLayerImporterPlugIn";
    c.name = "QVA PSD Importer";
    c.description =
        "This patch imports a Photoshop document. Use the QVA PSD Layer Patch to access each layer.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.outputs = {PortDescription::port("outputLayers", PortType::Structure, "Layers")};
    c.plugInKeys = QVAPlugIn::plugInKeys({kPsdData, kPsdPath, "topLeftOrigin", "portForEveryLayer",
                                          "usePixelUnits", "useCanvasBounds", "scaleWithViewPort",
                                          "sizeOption", "tvNormIndex", "totalWidth", "totalHeight"});
    c.create = [] { return std::make_unique<QVAPSDLayerImporterPlugIn>(); };
    return c;
  }();
  return patchClass;
}

void QVAPSDLayerImporterPlugIn::setPsdData(std::optional<QVADataStore> store) {
  const bool same =
      store.has_value() == psdData_.has_value() && (!store || store->archive() == psdData_->archive());
  if (same) {
    return;
  }
  psdData_ = std::move(store);
  loadPSD();
}

void QVAPSDLayerImporterPlugIn::loadPSD() {
  layers_.clear();
  std::unique_ptr<QVAPSDLayerImporter> importer;
  std::string error;
  if (psdData_) {
    const auto& bytes = psdData_->data();
    if (bytes) {
      importer = QVAPSDLayerImporter::layerImporterWithData(*bytes, true, &error);
    } else {
      error = "cannot read " + psdData_->fullPath().value_or("the document");
    }
  }
  loadError_ = psdData_ && !importer ? std::optional<std::string>(error) : std::nullopt;
  if (importer) {
    canvasSize_ = importer->PSDImageSize();
    if (setOutputSettingsFromSize(canvasSize_)) {
      setSizeOption(1);
    }
    for (const QVAPSDLayer& layer : importer->layers().value_or(std::vector<QVAPSDLayer>{})) {
      Structure structure;
      structure.set("image", Value(layer.image()));
      structure.set("canvasWidth", Value(std::trunc(static_cast<double>(canvasSize_.width))));
      structure.set("canvasHeight", Value(std::trunc(static_cast<double>(canvasSize_.height))));
      structure.set("name", Value(layer.name()));
      structure.set("x", Value(static_cast<double>(layer.origin().x)));
      structure.set("y", Value(static_cast<double>(layer.origin().y)));
      structure.set("opacity", Value(static_cast<double>(layer.opacity())));
      structure.set("isVisible", Value(layer.isVisible()));
      layers_.push_back(std::move(structure));
    }
  }
  adjustPorts();
}

bool QVAPSDLayerImporterPlugIn::setOutputSettingsFromSize(QVAPSDSize size) {
  totalWidth_ = static_cast<int>(size.width);
  totalHeight_ = static_cast<int>(size.height);
  for (std::size_t index = 0; index < kTVNorms.size(); ++index) {
    if (static_cast<float>(kTVNorms[index].width) == size.width &&
        static_cast<float>(kTVNorms[index].height) == size.height) {
      tvNormIndex_ = static_cast<std::uint32_t>(index);
      topLeftOrigin_ = true;
      return true;
    }
  }
  topLeftOrigin_ = false;
  return false;
}

void QVAPSDLayerImporterPlugIn::setSizeOption(std::uint32_t option) {
  sizeOption_ = option;
  if (option == 1) {
    setTvNormIndex(tvNormIndex_);
    scaleWithViewPort_ = true;
  } else if (option == 0) {
    setOutputSettingsFromSize(canvasSize_);
    scaleWithViewPort_ = false;
  }
}

void QVAPSDLayerImporterPlugIn::setTvNormIndex(std::uint32_t index) {
  tvNormIndex_ = index;
  if (index < kTVNorms.size()) {
    totalWidth_ = kTVNorms[index].width;
    totalHeight_ = kTVNorms[index].height;
  }
}

void QVAPSDLayerImporterPlugIn::setPortForEveryLayer(bool portForEveryLayer) {
  if (portForEveryLayer != portForEveryLayer_) {
    portForEveryLayer_ = portForEveryLayer;
    adjustPorts();
  }
}

void QVAPSDLayerImporterPlugIn::adjustPorts() {
  const std::size_t wanted = portForEveryLayer_ ? layers_.size() : 0;
  for (std::size_t number = portCount_ + 1; number <= wanted; ++number) {
    addOutputPort(PortType::Structure, layerPortKey(number), PortAttributes{});
  }
  for (std::size_t number = wanted + 1; number <= portCount_; ++number) {
    removeOutputPort(layerPortKey(number));
  }
  portCount_ = wanted;
}

bool QVAPSDLayerImporterPlugIn::startExecution(ExecutionContext& context) {
  if (psdData_ && psdData_->isRelativePath() && !psdData_->basePath()) {
    psdData_ = QVADataStore::dataStoreWithRelativePath(*psdData_->path(), context.compositionFolder());
    loadPSD();
  }
  return QVAPlugIn::startExecution(context);
}

bool QVAPSDLayerImporterPlugIn::execute(ExecutionContext& /*context*/, double /*time*/,
                                        const Arguments& /*arguments*/) {
  if (loadError_) {
    logMessage("QVAPSDLayerImporterPlugIn loadPSD: " + *loadError_);
    loadError_.reset();
  }
  std::vector<Value> published;
  for (std::size_t i = 0; i < layers_.size(); ++i) {
    Structure& layer = layers_[i];
    layer.set("usePixelUnits", Value(usePixelUnits_));
    layer.set("useCanvasBounds", Value(useCanvasBounds_));
    layer.set("totalWidth", Value(static_cast<double>(totalWidth_)));
    layer.set("totalHeight", Value(static_cast<double>(totalHeight_)));
    layer.set("alignTopLeft", Value(topLeftOrigin_));
    layer.set("scaleWithViewPort", Value(scaleWithViewPort_));
    Value value(StructureRef(std::make_shared<Structure>(layer)));
    if (portForEveryLayer_) {
      setValueForOutputKey(value, layerPortKey(i + 1));
    }
    published.push_back(std::move(value));
  }
  setValueForOutputKey(Value(Structure::makeArray(std::move(published))), "outputLayers");
  return true;
}

PropertyList QVAPSDLayerImporterPlugIn::serializedValueForKey(const std::string& key) const {
  if (key == kPsdData) {
    return psdData_ ? psdData_->archive() : PropertyList();
  }
  if (key == kPsdPath) {
    return psdData_ && psdData_->path() ? PropertyList(*psdData_->path()) : PropertyList();
  }
  if (key == "topLeftOrigin")
    return topLeftOrigin_;
  if (key == "portForEveryLayer")
    return portForEveryLayer_;
  if (key == "usePixelUnits")
    return usePixelUnits_;
  if (key == "useCanvasBounds")
    return useCanvasBounds_;
  if (key == "scaleWithViewPort")
    return scaleWithViewPort_;
  if (key == "sizeOption")
    return sizeOption_;
  if (key == "tvNormIndex")
    return tvNormIndex_;
  if (key == "totalWidth")
    return totalWidth_;
  if (key == "totalHeight")
    return totalHeight_;
  return QVAPlugIn::serializedValueForKey(key);
}

void QVAPSDLayerImporterPlugIn::setSerializedValueForKey(const PropertyList& value, const std::string& key) {
  if (key == kPsdData) {
    setPsdData(value.is_object() ? std::optional(QVADataStore::fromArchive(value)) : std::nullopt);
  } else if (key == kPsdPath) {
    // The path travels inside the data store.
  } else if (key == "topLeftOrigin") {
    topLeftOrigin_ = settingBoolean(value);
  } else if (key == "portForEveryLayer") {
    setPortForEveryLayer(settingBoolean(value));
  } else if (key == "usePixelUnits") {
    usePixelUnits_ = settingBoolean(value);
  } else if (key == "useCanvasBounds") {
    useCanvasBounds_ = settingBoolean(value);
  } else if (key == "scaleWithViewPort") {
    scaleWithViewPort_ = settingBoolean(value);
  } else if (key == "sizeOption") {
    setSizeOption(settingIndex(value));
  } else if (key == "tvNormIndex") {
    setTvNormIndex(settingIndex(value));
  } else if (key == "totalWidth") {
    totalWidth_ = settingInteger(value);
  } else if (key == "totalHeight") {
    totalHeight_ = settingInteger(value);
  } else {
    QVAPlugIn::setSerializedValueForKey(value, key);
  }
}

}  // namespace qva
