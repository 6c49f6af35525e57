#pragma once

#include <cstdint>
#include <string>

#include "framework/Image.h"

namespace qva {

// A rectangle on the canvas in pixels, edges as the document stores them (bottom and right exclusive).
struct PsdRect {
  std::int32_t top = 0;
  std::int32_t left = 0;
  std::int32_t bottom = 0;
  std::int32_t right = 0;

  std::int64_t width() const { return std::int64_t{right} - left; }
  std::int64_t height() const { return std::int64_t{bottom} - top; }
  bool isEmpty() const { return width() <= 0 || height() <= 0; }
};

// What a layer record says a layer is in the document's group structure.
enum class PsdSectionType : std::uint32_t { Layer = 0, OpenGroup = 1, ClosedGroup = 2, GroupEnd = 3 };

// One layer of a document as its record describes it, with its pixels.
struct PsdLayerRecord {
  PsdRect bounds;
  // The blend mode key, such as "norm" or "mul ".
  std::string blendMode = "norm";
  std::uint8_t opacity = 255;
  std::uint8_t clipping = 0;
  // Bit 0 transparency protected, bit 1 hidden, bit 3 tells that bit 4 is set, bit 4 pixels irrelevant.
  std::uint8_t flags = 0;
  PsdSectionType section = PsdSectionType::Layer;
  // The Unicode name as UTF-16 big-endian bytes: the record's Unicode name block without any
  // terminating zeros, or the legacy name when there is no such block.
  std::string unicodeNameBytes;
  // The same name in UTF-8.
  std::string name;
  // Premultiplied BGRA pixels of the bounds; null for a layer without pixels (empty bounds).
  ImageRef pixels;
};

}  // namespace qva
