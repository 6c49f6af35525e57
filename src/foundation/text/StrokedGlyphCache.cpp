#include "foundation/text/StrokedGlyphCache.h"

#include <cmath>

namespace qva {

StrokedGlyphCache& StrokedGlyphCache::forThisThread() {
  thread_local StrokedGlyphCache cache;
  return cache;
}

StrokedGlyphCache::~StrokedGlyphCache() {
  clear();
}

void StrokedGlyphCache::clear() {
  for (auto& [key, mask] : masks_) {
    if (mask.surface != nullptr) {
      cairo_surface_destroy(mask.surface);
    }
    cairo_scaled_font_destroy(std::get<0>(key));
  }
  masks_.clear();
  bytes_ = 0;
}

StrokedGlyphCache::Mask StrokedGlyphCache::mask(cairo_scaled_font_t* font, unsigned long glyph,
                                                double lineWidth, double scale) {
  const Key key{font, glyph, lineWidth, scale};
  if (auto found = masks_.find(key); found != masks_.end()) {
    return found->second;
  }
  cairo_glyph_t placed{glyph, 0, 0};
  cairo_text_extents_t extents;
  cairo_scaled_font_glyph_extents(font, &placed, 1, &extents);
  const double pad = lineWidth / 2 + 2;
  Mask mask;
  mask.x = static_cast<int>(std::floor((extents.x_bearing - pad) * scale));
  mask.y = static_cast<int>(std::floor((extents.y_bearing - pad) * scale));
  const double width = std::ceil((extents.x_bearing + extents.width + pad) * scale) - mask.x;
  const double height = std::ceil((extents.y_bearing + extents.height + pad) * scale) - mask.y;
  std::size_t maskBytes = 0;
  if (extents.width > 0 && extents.height > 0 && width < 32767 && height < 32767) {
    mask.surface =
        cairo_image_surface_create(CAIRO_FORMAT_A8, static_cast<int>(width), static_cast<int>(height));
    cairo_t* cairo = cairo_create(mask.surface);
    cairo_translate(cairo, -mask.x, -mask.y);
    cairo_scale(cairo, scale, scale);
    cairo_set_scaled_font(cairo, font);
    cairo_glyph_path(cairo, &placed, 1);
    cairo_set_line_width(cairo, lineWidth);
    cairo_set_line_join(cairo, CAIRO_LINE_JOIN_ROUND);
    cairo_stroke(cairo);
    cairo_destroy(cairo);
    cairo_surface_flush(mask.surface);
    maskBytes = static_cast<std::size_t>(cairo_image_surface_get_stride(mask.surface)) *
                static_cast<std::size_t>(height);
  }
  if (bytes_ + maskBytes > kMaximumBytes) {
    clear();
  }
  bytes_ += maskBytes;
  masks_.emplace(Key{cairo_scaled_font_reference(font), glyph, lineWidth, scale}, mask);
  return mask;
}

}  // namespace qva
