#pragma once

#include <cairo.h>

#include <cstddef>
#include <map>
#include <tuple>

namespace qva {

// Glyph outlines stroked once and kept as coverage masks, because stroking curves costs far more than
// painting a mask: a stroked headline is drawn from masks at the price of plain text. One cache per
// thread, as Pango and Cairo objects are used on the thread that made them.
class StrokedGlyphCache {
 public:
  // A glyph's stroke coverage; its top-left corner lies at (x, y) from the glyph's origin.
  struct Mask {
    cairo_surface_t* surface = nullptr;
    int x = 0;
    int y = 0;
  };

  static StrokedGlyphCache& forThisThread();

  StrokedGlyphCache() = default;
  ~StrokedGlyphCache();
  StrokedGlyphCache(const StrokedGlyphCache&) = delete;
  StrokedGlyphCache& operator=(const StrokedGlyphCache&) = delete;

  // The mask of the glyph of the font (whose matrices place glyphs in pixels) stroked with the line
  // width, for an origin on a whole pixel, in pixels scale times as dense (its corner and size in
  // them too); valid until the next call. No surface when the glyph has no outline.
  Mask mask(cairo_scaled_font_t* font, unsigned long glyph, double lineWidth, double scale = 1);

 private:
  // Masks beyond this many bytes are all dropped at once; text rarely needs more than a few hundred.
  static constexpr std::size_t kMaximumBytes = std::size_t{48} << 20;

  void clear();

  using Key = std::tuple<cairo_scaled_font_t*, unsigned long, double, double>;
  // Each key holds a reference on its font, so a font's address is never reused while cached.
  std::map<Key, Mask> masks_;
  std::size_t bytes_ = 0;
};

}  // namespace qva
