#include "host/Composition.h"

#include <cmath>
#include <cstdint>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>

#include "host/SimulatedGpiSettings.h"

namespace qva {

namespace {

const std::set<std::string>& knownTopLevelKeys() {
  static const std::set<std::string> keys = {
      "format",          "canvas",           "fps",       "duration", "background", "patches", "connections",
      "publishedInputs", "publishedOutputs", "gpiDriver", "gpiBox"};
  return keys;
}

const std::set<std::string>& knownPatchKeys() {
  static const std::set<std::string> keys = {"id", "class", "settings", "inputs", "layer", "time"};
  return keys;
}

std::string quoted(const std::string& text) {
  return PropertyList(text).dump();
}

}  // namespace

std::optional<PortReference> PortReference::parse(const std::string& text) {
  const std::size_t dot = text.find('.');
  if (dot == std::string::npos || dot == 0 || dot + 1 == text.size()) {
    return std::nullopt;
  }
  return PortReference{text.substr(0, dot), text.substr(dot + 1)};
}

CompositionError Composition::errorAt(const std::string& message, const std::string& token,
                                      const std::string& anchor) const {
  std::size_t offset = 0;
  if (!anchor.empty()) {
    const std::size_t anchorOffset = text_.find(quoted(anchor));
    offset = anchorOffset == std::string::npos ? 0 : anchorOffset;
  }
  std::size_t position = token.empty() ? std::string::npos : text_.find(quoted(token), offset);
  if (position == std::string::npos && !anchor.empty()) {
    position = text_.find(quoted(anchor));
  }
  if (position == std::string::npos) {
    return CompositionError(path_ + ": " + message);
  }
  const std::size_t line =
      1 + static_cast<std::size_t>(std::count(text_.begin(), text_.begin() + position, '\n'));
  const std::size_t lineStart = text_.rfind('\n', position);
  const std::size_t column = position - (lineStart == std::string::npos ? 0 : lineStart + 1) + 1;
  return CompositionError(path_ + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + message);
}

Composition Composition::load(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw CompositionError(path + ": cannot read the composition file");
  }
  std::ostringstream text;
  text << file.rdbuf();
  return parse(text.str(), path);
}

Composition Composition::parse(const std::string& text, const std::string& path) {
  Composition composition;
  composition.path_ = path;
  composition.text_ = text;
  PropertyList json;
  try {
    json = parsePropertyList(text);
  } catch (const PropertyList::exception& error) {
    throw CompositionError(path + ": not valid JSON: " + error.what());
  }
  const auto fail = [&](const std::string& message, const std::string& token = "",
                        const std::string& anchor = "") {
    return composition.errorAt(message, token, anchor);
  };
  if (!json.is_object()) {
    throw fail("a composition is a JSON object");
  }
  for (const auto& [key, value] : json.items()) {
    if (!knownTopLevelKeys().contains(key)) {
      throw fail("unknown key \"" + key + "\"", key);
    }
  }
  if (const PropertyList format = json.value("format", PropertyList()); format != kFormat) {
    throw fail(std::string("\"format\" must be \"") + kFormat + "\"", "format");
  }
  if (json.contains("canvas")) {
    const PropertyList& canvas = json["canvas"];
    if (!canvas.is_object() || !canvas.value("width", PropertyList()).is_number_unsigned() ||
        !canvas.value("height", PropertyList()).is_number_unsigned()) {
      throw fail("\"canvas\" must be {\"width\": W, \"height\": H} in pixels", "canvas");
    }
    const auto width = canvas["width"].get<std::uint64_t>();
    const auto height = canvas["height"].get<std::uint64_t>();
    if (width < 1 || height < 1 || width > 16384 || height > 16384) {
      throw fail("the canvas must be 1 to 16384 pixels on each side", "canvas");
    }
    composition.width_ = static_cast<int>(width);
    composition.height_ = static_cast<int>(height);
  }
  for (const auto& [key, field] :
       {std::pair{"fps", &composition.frameRate_}, {"duration", &composition.duration_}}) {
    if (json.contains(key)) {
      if (!json[key].is_number() || !(json[key].get<double>() > 0) ||
          !std::isfinite(json[key].get<double>())) {
        throw fail(std::string("\"") + key + "\" must be a positive number", key);
      }
      *field = json[key].get<double>();
    }
  }
  if (json.contains("background")) {
    const PropertyList& background = json["background"];
    if (!background.is_array() || background.size() != 4 ||
        !std::all_of(background.begin(), background.end(),
                     [](const PropertyList& c) { return c.is_number(); })) {
      throw fail("\"background\" must be [r, g, b, a]", "background");
    }
    composition.background_ = {background[0].get<double>(), background[1].get<double>(),
                               background[2].get<double>(), background[3].get<double>()};
  }
  try {
    if (SimulatedGpiSettings::selectsSimulatedBox(json)) {
      composition.simulatedGpiBox_ = json.value("gpiBox", PropertyList::object());
      SimulatedGpiSettings::check(*composition.simulatedGpiBox_);
    } else if (json.contains("gpiBox")) {
      throw std::invalid_argument("\"gpiBox\" needs \"gpiDriver\": \"simulated\"");
    }
  } catch (const std::invalid_argument& error) {
    throw fail(error.what(), json.contains("gpiBox") ? "gpiBox" : "gpiDriver");
  }

  std::set<std::string> ids;
  const PropertyList patches = json.value("patches", PropertyList::array());
  if (!patches.is_array()) {
    throw fail("\"patches\" must be an array", "patches");
  }
  for (const PropertyList& entry : patches) {
    if (!entry.is_object() || !entry.value("id", PropertyList()).is_string() ||
        !entry.value("class", PropertyList()).is_string()) {
      throw fail("every patch needs a string \"id\" and \"class\"", "patches");
    }
    PatchEntry patch;
    patch.id = entry["id"].get<std::string>();
    patch.className = entry["class"].get<std::string>();
    for (const auto& [key, value] : entry.items()) {
      if (!knownPatchKeys().contains(key)) {
        throw fail("unknown key \"" + key + "\" in patch \"" + patch.id + "\"", key, patch.id);
      }
    }
    if (patch.id.find('.') != std::string::npos || !ids.insert(patch.id).second) {
      throw fail("patch ids must be unique and hold no \".\": \"" + patch.id + "\"", patch.id);
    }
    for (const auto& [key, field] : {std::pair{"settings", &patch.settings}, {"inputs", &patch.inputs}}) {
      if (entry.contains(key)) {
        if (!entry[key].is_object()) {
          throw fail(std::string("\"") + key + "\" of patch \"" + patch.id + "\" must be an object", key,
                     patch.id);
        }
        *field = entry[key];
      }
    }
    if (entry.contains("layer")) {
      const PropertyList& layer = entry["layer"];
      if (!layer.is_number_integer() || layer < std::numeric_limits<int>::min() ||
          layer > std::numeric_limits<int>::max()) {
        throw fail("\"layer\" of patch \"" + patch.id + "\" must be an integer", "layer", patch.id);
      }
      patch.layer = layer.get<int>();
    }
    composition.patches_.push_back(std::move(patch));
  }

  const auto reference = [&](const PropertyList& value, const std::string& what) {
    std::optional<PortReference> port =
        value.is_string() ? PortReference::parse(value.get<std::string>()) : std::nullopt;
    if (!port || !ids.contains(port->patchId)) {
      throw fail(
          what + " " + value.dump() + " must name a port \"patchId.portKey\" of a patch of the composition",
          value.is_string() ? value.get<std::string>() : "");
    }
    return *port;
  };

  for (std::size_t index = 0; index < composition.patches_.size(); ++index) {
    const PropertyList& entry = patches[index];
    if (entry.contains("time")) {
      composition.patches_[index].timeSource =
          reference(entry["time"], "the time base of patch \"" + composition.patches_[index].id + "\"");
    }
  }

  const PropertyList connections = json.value("connections", PropertyList::array());
  if (!connections.is_array()) {
    throw fail("\"connections\" must be an array of \"id.outputKey -> id.inputKey\"", "connections");
  }
  for (const PropertyList& connection : connections) {
    const std::string line = connection.is_string() ? connection.get<std::string>() : connection.dump();
    const std::size_t arrow = line.find("->");
    if (!connection.is_string() || arrow == std::string::npos) {
      throw fail("a connection is a string \"id.outputKey -> id.inputKey\": " + line, line);
    }
    const auto trim = [](std::string part) {
      part.erase(0, part.find_first_not_of(' '));
      part.erase(part.find_last_not_of(' ') + 1);
      return part;
    };
    composition.connections_.push_back(
        {reference(trim(line.substr(0, arrow)), "connection " + quoted(line) + ": source"),
         reference(trim(line.substr(arrow + 2)), "connection " + quoted(line) + ": destination"), line});
  }
  for (const auto& [key, mapping] : {std::pair{"publishedInputs", 0}, {"publishedOutputs", 1}}) {
    const PropertyList published = json.value(key, PropertyList::object());
    if (!published.is_object()) {
      throw fail(std::string("\"") + key + "\" must map names to \"patchId.portKey\"", key);
    }
    for (const auto& [name, port] : published.items()) {
      const PortReference target = reference(port, std::string(key) + " \"" + name + "\"");
      if (mapping == 0) {
        composition.publishedInputs_[name] = target;
      } else {
        composition.publishedOutputs_.emplace_back(name, target);
      }
    }
  }
  return composition;
}

}  // namespace qva
