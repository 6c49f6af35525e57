#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace qva {

class Image;
class Structure;
using ImageRef = std::shared_ptr<const Image>;
using StructureRef = std::shared_ptr<const Structure>;

enum class PortType { Boolean, Index, Number, String, Color, Image, Structure };

// "Boolean", "Index", "Number", "String", "Color", "Image" or "Structure".
std::string_view portTypeName(PortType type);
std::optional<PortType> portTypeFromName(std::string_view name);

// An RGBA colour, each component 0 to 1.
struct Color {
  double red = 0;
  double green = 0;
  double blue = 0;
  double alpha = 1;

  bool operator==(const Color&) const = default;
};

// A port value: no value, or one of the seven port types. Values are cheap to copy: images and
// structures are shared, immutable objects.
class Value {
 public:
  Value() = default;
  Value(bool boolean) : storage_(boolean) {}
  Value(std::uint32_t index) : storage_(index) {}
  Value(double number) : storage_(number) {}
  Value(std::string string) : storage_(std::move(string)) {}
  Value(const char* string) : storage_(std::string(string)) {}
  Value(Color color) : storage_(color) {}
  Value(ImageRef image);
  Value(StructureRef structure);

  // What a port of that type holds before anything is written to it: false, 0 or 0.0 for Boolean,
  // Index and Number ports, no value for the others.
  static Value initialValue(PortType type);

  bool isNone() const { return storage_.index() == 0; }
  std::optional<PortType> type() const;

  bool isBoolean() const { return std::holds_alternative<bool>(storage_); }
  bool isIndex() const { return std::holds_alternative<std::uint32_t>(storage_); }
  bool isNumber() const { return std::holds_alternative<double>(storage_); }
  bool isString() const { return std::holds_alternative<std::string>(storage_); }
  bool isColor() const { return std::holds_alternative<Color>(storage_); }
  bool isImage() const { return std::holds_alternative<ImageRef>(storage_); }
  bool isStructure() const { return std::holds_alternative<StructureRef>(storage_); }

  // Readers with the host's conversions: a number read as an index is truncated and clamped, a string
  // read as a number takes its leading number, no value reads as false, 0, "" or nothing.
  bool booleanValue() const;
  std::uint32_t indexValue() const;
  double numberValue() const;
  std::string stringValue() const;
  std::optional<Color> colorValue() const;
  ImageRef imageValue() const;
  StructureRef structureValue() const;

  // The value converted to a port type as the host converts a value along a connection or when it
  // sets an input; no value stays no value, and a value that cannot be converted becomes no value.
  Value convertedTo(PortType type) const;

  // Scalars and strings compare by value (NaN equals NaN), structures by content, images by identity.
  bool operator==(const Value& other) const;

 private:
  std::variant<std::monostate, bool, std::uint32_t, double, std::string, Color, ImageRef, StructureRef>
      storage_;
};

}  // namespace qva
