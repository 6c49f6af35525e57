#include "framework/Value.h"

#include <strings.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "framework/Image.h"
#include "framework/Structure.h"

namespace qva {

namespace {

constexpr std::array<std::string_view, 7> kPortTypeNames = {"Boolean", "Index", "Number",   "String",
                                                            "Color",   "Image", "Structure"};

double leadingNumber(const std::string& text) {
  return std::strtod(text.c_str(), nullptr);
}

std::uint32_t clampToIndex(double number) {
  if (std::isnan(number) || number <= 0) {
    return 0;
  }
  if (number >= static_cast<double>(std::numeric_limits<std::uint32_t>::max())) {
    return std::numeric_limits<std::uint32_t>::max();
  }
  return static_cast<std::uint32_t>(number);
}

std::string formatNumber(double number) {
  if (std::isnan(number)) {
    return "nan";
  }
  if (std::isinf(number)) {
    return number > 0 ? "inf" : "-inf";
  }
  std::array<char, 32> buffer{};
  auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number);
  return std::string(buffer.data(), result.ptr);
}

}  // namespace

std::string_view portTypeName(PortType type) {
  return kPortTypeNames.at(static_cast<std::size_t>(type));
}

std::optional<PortType> portTypeFromName(std::string_view name) {
  for (std::size_t i = 0; i < kPortTypeNames.size(); ++i) {
    if (kPortTypeNames[i] == name) {
      return static_cast<PortType>(i);
    }
  }
  return std::nullopt;
}

Value::Value(ImageRef image) {
  if (image) {
    storage_ = std::move(image);
  }
}

Value::Value(StructureRef structure) {
  if (structure) {
    storage_ = std::move(structure);
  }
}

Value Value::initialValue(PortType type) {
  switch (type) {
    case PortType::Boolean:
      return Value(false);
    case PortType::Index:
      return Value(std::uint32_t{0});
    case PortType::Number:
      return Value(0.0);
    default:
      return Value();
  }
}

std::optional<PortType> Value::type() const {
  switch (storage_.index()) {
    case 1:
      return PortType::Boolean;
    case 2:
      return PortType::Index;
    case 3:
      return PortType::Number;
    case 4:
      return PortType::String;
    case 5:
      return PortType::Color;
    case 6:
      return PortType::Image;
    case 7:
      return PortType::Structure;
    default:
      return std::nullopt;
  }
}

bool Value::booleanValue() const {
  if (const bool* boolean = std::get_if<bool>(&storage_)) {
    return *boolean;
  }
  if (const std::string* string = std::get_if<std::string>(&storage_)) {
    return strcasecmp(string->c_str(), "true") == 0 || strcasecmp(string->c_str(), "yes") == 0 ||
           leadingNumber(*string) != 0;
  }
  const double number = numberValue();
  return number != 0 && !std::isnan(number);
}

std::uint32_t Value::indexValue() const {
  if (const std::uint32_t* index = std::get_if<std::uint32_t>(&storage_)) {
    return *index;
  }
  return clampToIndex(numberValue());
}

double Value::numberValue() const {
  if (const double* number = std::get_if<double>(&storage_)) {
    return *number;
  }
  if (const std::uint32_t* index = std::get_if<std::uint32_t>(&storage_)) {
    return *index;
  }
  if (const bool* boolean = std::get_if<bool>(&storage_)) {
    return *boolean ? 1.0 : 0.0;
  }
  if (const std::string* string = std::get_if<std::string>(&storage_)) {
    return leadingNumber(*string);
  }
  return 0.0;
}

std::string Value::stringValue() const {
  if (const std::string* string = std::get_if<std::string>(&storage_)) {
    return *string;
  }
  if (const double* number = std::get_if<double>(&storage_)) {
    return formatNumber(*number);
  }
  if (const std::uint32_t* index = std::get_if<std::uint32_t>(&storage_)) {
    return std::to_string(*index);
  }
  if (const bool* boolean = std::get_if<bool>(&storage_)) {
    return *boolean ? "1" : "0";
  }
  return {};
}

std::optional<Color> Value::colorValue() const {
  if (const Color* color = std::get_if<Color>(&storage_)) {
    return *color;
  }
  return std::nullopt;
}

ImageRef Value::imageValue() const {
  if (const ImageRef* image = std::get_if<ImageRef>(&storage_)) {
    return *image;
  }
  return nullptr;
}

StructureRef Value::structureValue() const {
  if (const StructureRef* structure = std::get_if<StructureRef>(&storage_)) {
    return *structure;
  }
  return nullptr;
}

Value Value::convertedTo(PortType target) const {
  if (isNone() || type() == target) {
    return *this;
  }
  const bool scalar = isBoolean() || isIndex() || isNumber() || isString();
  switch (target) {
    case PortType::Boolean:
      return scalar ? Value(booleanValue()) : Value();
    case PortType::Index:
      return scalar ? Value(indexValue()) : Value();
    case PortType::Number:
      return scalar ? Value(numberValue()) : Value();
    case PortType::String:
      return scalar ? Value(stringValue()) : Value();
    case PortType::Color:
    case PortType::Image:
    case PortType::Structure:
      return Value();
  }
  return Value();
}

bool Value::operator==(const Value& other) const {
  if (storage_.index() != other.storage_.index()) {
    return false;
  }
  if (const double* number = std::get_if<double>(&storage_)) {
    const double otherNumber = std::get<double>(other.storage_);
    return *number == otherNumber || (std::isnan(*number) && std::isnan(otherNumber));
  }
  if (const StructureRef* structure = std::get_if<StructureRef>(&storage_)) {
    const StructureRef& otherStructure = std::get<StructureRef>(other.storage_);
    return *structure == otherStructure || **structure == *otherStructure;
  }
  return storage_ == other.storage_;
}

}  // namespace qva
