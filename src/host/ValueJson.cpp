#include "host/ValueJson.h"

#include <cmath>
#include <stdexcept>

#include "framework/Structure.h"

namespace qva {

namespace {

std::optional<double> specialNumber(const std::string& text) {
  if (text == "nan") {
    return std::nan("");
  }
  if (text == "inf") {
    return HUGE_VAL;
  }
  if (text == "-inf") {
    return -HUGE_VAL;
  }
  return std::nullopt;
}

Color decodeColor(const PropertyList& json) {
  if (!json.is_array() || json.size() < 3 || json.size() > 4) {
    throw std::invalid_argument("a colour is an array [r, g, b] or [r, g, b, a] of numbers from 0 to 1");
  }
  for (const PropertyList& component : json) {
    if (!component.is_number()) {
      throw std::invalid_argument("colour components must be numbers");
    }
  }
  return {json[0].get<double>(), json[1].get<double>(), json[2].get<double>(),
          json.size() == 4 ? json[3].get<double>() : 1.0};
}

}  // namespace

PropertyList ValueJson::encodeNumber(double number) {
  if (std::isnan(number)) {
    return "nan";
  }
  if (std::isinf(number)) {
    return number > 0 ? "inf" : "-inf";
  }
  return number;
}

PropertyList ValueJson::encode(const Value& value, const ImageEncoder& imageEncoder) {
  if (value.isNone()) {
    return nullptr;
  }
  switch (*value.type()) {
    case PortType::Boolean:
      return value.booleanValue();
    case PortType::Index:
      return value.indexValue();
    case PortType::Number:
      return encodeNumber(value.numberValue());
    case PortType::String:
      return value.stringValue();
    case PortType::Color: {
      const Color color = *value.colorValue();
      return PropertyList::array({encodeNumber(color.red), encodeNumber(color.green),
                                  encodeNumber(color.blue), encodeNumber(color.alpha)});
    }
    case PortType::Image:
      return imageEncoder ? imageEncoder(value.imageValue()) : PropertyList();
    case PortType::Structure: {
      const StructureRef structure = value.structureValue();
      if (structure->isArray()) {
        PropertyList array = PropertyList::array();
        for (const Structure::Member& member : structure->members()) {
          array.push_back(encode(member.value, imageEncoder));
        }
        return array;
      }
      PropertyList object = PropertyList::object();
      std::size_t position = 0;
      for (const Structure::Member& member : structure->members()) {
        // A structure mixing keyed and unkeyed members names the unkeyed ones by position.
        object[member.key ? *member.key : std::to_string(position)] = encode(member.value, imageEncoder);
        ++position;
      }
      return object;
    }
  }
  return nullptr;
}

bool ValueJson::isImageValue(const PropertyList& json) {
  if (!json.is_object()) {
    return false;
  }
  if (json.size() == 1) {
    return json.contains("imageFile");
  }
  return json.size() == 3 && json.contains("solid") && json.contains("width") && json.contains("height");
}

Value ValueJson::decodeUntyped(const PropertyList& json, const ImageDecoder& imageDecoder) {
  if (imageDecoder && isImageValue(json)) {
    return imageDecoder(json);
  }
  if (json.is_boolean()) {
    return json.get<bool>();
  }
  if (json.is_number()) {
    return json.get<double>();
  }
  if (json.is_string()) {
    return json.get<std::string>();
  }
  if (json.is_array()) {
    auto structure = std::make_shared<Structure>();
    for (const PropertyList& element : json) {
      structure->append(decodeUntyped(element, imageDecoder));
    }
    return StructureRef(structure);
  }
  if (json.is_object()) {
    auto structure = std::make_shared<Structure>();
    for (const auto& [key, element] : json.items()) {
      structure->set(key, decodeUntyped(element, imageDecoder));
    }
    return StructureRef(structure);
  }
  return Value();
}

Value ValueJson::decode(const PropertyList& json, PortType type, const ImageDecoder& imageDecoder) {
  if (json.is_null()) {
    return Value();
  }
  switch (type) {
    case PortType::Color:
      return decodeColor(json);
    case PortType::Image:
      if (!json.is_object() || !imageDecoder) {
        throw std::invalid_argument(
            R"(an image is {"imageFile": "path.png"} or {"solid": [r, g, b, a], "width": W, "height": H})");
      }
      return imageDecoder(json);
    case PortType::Structure:
      if (!json.is_array() && !json.is_object()) {
        throw std::invalid_argument("a structure is a JSON array or object");
      }
      return decodeUntyped(json, imageDecoder);
    case PortType::Number:
      if (json.is_string()) {
        if (auto special = specialNumber(json.get<std::string>())) {
          return *special;
        }
      }
      [[fallthrough]];
    case PortType::Boolean:
    case PortType::Index:
    case PortType::String:
      if (json.is_structured() || json.is_binary()) {
        throw std::invalid_argument("a " + std::string(portTypeName(type)) + " value must be a scalar");
      }
      return decodeUntyped(json).convertedTo(type);
  }
  return Value();
}

}  // namespace qva
