#pragma once

#include <cairo.h>
#include <pango/pango.h>

#include <string_view>

#include "foundation/text/TextAttributes.h"

namespace qva {

// One shaped run of a laid-out line, placed: where its glyphs start and the line it sits in.
struct PlacedGlyphRun {
  PangoGlyphItem* run;
  // The run's text (UTF-8, the paragraph's bytes the run's item covers).
  std::string_view text;
  const TextAttributes& attributes;
  double x;
  double baseline;
  double lineTop;
  double lineHeight;
};

// Draws runs with every character attribute: background, glyph fill and stroke with obliqueness and
// expansion, underline and strikethrough with their styles, patterns, thickness and by-word gaps.
class GlyphRunPainter {
 public:
  enum class Mode {
    // Everything in its own colours.
    Colour,
    // Everything as coverage only (colour alpha kept), for a shadow's mask.
    Coverage,
  };

  GlyphRunPainter(cairo_t* cairo, Mode mode) : cairo_(cairo), mode_(mode) {}

  void paintBackground(const PlacedGlyphRun& run) const;
  void paintGlyphs(const PlacedGlyphRun& run) const;
  void paintDecorations(const PlacedGlyphRun& run) const;

  // The horizontal scale an expansion gives (expansion is the log of the factor).
  static double expansionFactor(const TextAttributes& attributes);
  // Target pixels per drawing unit across: more than 1 where text is drawn at an output's density.
  static double deviceScale(cairo_t* cairo);

 private:
  static cairo_scaled_font_t* shapedFont(PangoFont* font, const TextAttributes& attributes);
  void setColour(const Color& colour) const;
  void paintLine(const PlacedGlyphRun& run, int styleMask, double position, double thickness,
                 const Color& colour) const;

  cairo_t* cairo_;
  Mode mode_;
};

}  // namespace qva
