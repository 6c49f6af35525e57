#pragma once

#include <functional>

#include "framework/PropertyList.h"
#include "framework/Value.h"

namespace qva {

// The JSON form of port values used by `qva drive`, `qva run` and composition files: Boolean as true or
// false, Index as an integer, Number as a number (NaN and infinities as "nan", "inf", "-inf"), String,
// Color as [r, g, b, a], Structure as an array or an object in the structure's order, no value as null.
class ValueJson {
 public:
  using ImageEncoder = std::function<PropertyList(const ImageRef& image)>;
  using ImageDecoder = std::function<ImageRef(const PropertyList& imageValue)>;

  // Images are written by the encoder given; without one an image is written as null.
  static PropertyList encode(const Value& value, const ImageEncoder& imageEncoder = {});
  // The value of JSON for a port of the given type; images are made by the decoder given. Throws
  // std::invalid_argument with a message for JSON that cannot be such a value.
  static Value decode(const PropertyList& json, PortType type, const ImageDecoder& imageDecoder = {});
  // JSON as a value of its own kind: numbers as Number, arrays and objects as structures. With an image
  // decoder, objects whose keys are exactly those of an image value become images, at any depth.
  static Value decodeUntyped(const PropertyList& json, const ImageDecoder& imageDecoder = {});
  // Whether the keys of the object are exactly those of an image value: {"imageFile"} or {"solid",
  // "width", "height"}.
  static bool isImageValue(const PropertyList& json);
  // A number as JSON, with NaN and infinities as strings.
  static PropertyList encodeNumber(double number);
};

}  // namespace qva
