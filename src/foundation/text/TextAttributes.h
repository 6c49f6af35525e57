#pragma once

#include <optional>
#include <string>
#include <vector>

#include "framework/Value.h"

namespace qva {

// Underline and strikethrough masks: a style in the low byte, a pattern in the next, and by-word.
namespace TextStyleMask {
constexpr int None = 0;
constexpr int Single = 0x01;
constexpr int Thick = 0x02;
constexpr int Double = 0x09;
constexpr int PatternDot = 0x100;
constexpr int PatternDash = 0x200;
constexpr int PatternDashDot = 0x300;
constexpr int PatternDashDotDot = 0x400;
constexpr int ByWord = 0x8000;
}  // namespace TextStyleMask

// A font as the user named it; whichever installed face draws it, the name stays.
struct FontDescriptor {
  std::string family = "Helvetica";
  double pointSize = 12;
  bool bold = false;
  bool italic = false;

  bool operator==(const FontDescriptor&) const = default;
};

struct TextShadow {
  // Offset in points, y upwards.
  double offsetX = 0;
  double offsetY = 0;
  double blurRadius = 0;
  Color color{0, 0, 0, 1.0 / 3.0};

  bool operator==(const TextShadow&) const = default;
};

enum class TextAlignment { Left = 0, Right = 1, Center = 2, Justified = 3, Natural = 4 };

enum class LineBreakMode {
  WordWrap = 0,
  CharWrap = 1,
  Clip = 2,
  TruncateHead = 3,
  TruncateTail = 4,
  TruncateMiddle = 5
};

struct TabStop {
  double location = 0;
  TextAlignment alignment = TextAlignment::Left;
  // Aligned on the decimal separator. Such a stop also says Right, where a number stands best when the
  // separator is not looked for.
  bool decimal = false;

  bool operator==(const TabStop&) const = default;
};

// Lengths in points; 0 for a line height means no limit.
struct ParagraphStyle {
  TextAlignment alignment = TextAlignment::Natural;
  LineBreakMode lineBreakMode = LineBreakMode::WordWrap;
  double lineSpacing = 0;
  double lineHeightMultiple = 0;
  double minimumLineHeight = 0;
  double maximumLineHeight = 0;
  double paragraphSpacing = 0;
  double paragraphSpacingBefore = 0;
  double firstLineHeadIndent = 0;
  double headIndent = 0;
  double tailIndent = 0;
  double defaultTabInterval = 0;
  std::vector<TabStop> tabStops;

  bool operator==(const ParagraphStyle&) const = default;
};

// The attributes of one run. Every field holds its default when the attribute is absent; the
// defaults are those of a run read from RTF without any formatting (Helvetica 12, black).
struct TextAttributes {
  FontDescriptor font;
  Color foregroundColor{0, 0, 0, 1};
  std::optional<Color> backgroundColor;
  int underlineStyle = TextStyleMask::None;
  // Absent: drawn in the foreground colour.
  std::optional<Color> underlineColor;
  int strikethroughStyle = TextStyleMask::None;
  std::optional<Color> strikethroughColor;
  // Percent of the point size; negative fills and strokes, positive strokes only.
  double strokeWidth = 0;
  std::optional<Color> strokeColor;
  // Points added after each character.
  double kerning = 0;
  double obliqueness = 0;
  // Log of the expansion factor.
  double expansion = 0;
  std::optional<TextShadow> shadow;
  // 0 none, 1 default, 2 all.
  int ligature = 1;
  double baselineOffset = 0;
  // Superscript levels: positive raises and shrinks the text, negative lowers and shrinks it.
  int superscript = 0;
  ParagraphStyle paragraphStyle;

  bool operator==(const TextAttributes&) const = default;
};

}  // namespace qva
