#include "foundation/text/GlyphRunPainter.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "foundation/text/StrokedGlyphCache.h"

namespace qva {

namespace {

double fromPango(int units) {
  return static_cast<double>(units) / PANGO_SCALE;
}

double runAdvance(const PangoGlyphItem* run) {
  return fromPango(pango_glyph_string_get_width(run->glyphs));
}

bool isWhitespaceAt(std::string_view text, int offset) {
  if (offset < 0 || static_cast<std::size_t>(offset) >= text.size()) {
    return false;
  }
  gunichar character = g_utf8_get_char_validated(
      text.data() + offset, static_cast<gssize>(text.size() - static_cast<std::size_t>(offset)));
  return character < 0x110000 && g_unichar_isspace(character);
}

// The horizontal stretches of the run a decoration covers: the whole run, or with by-word only the
// stretches of glyphs that are not white space. In pixels from the run's start, before expansion.
std::vector<std::pair<double, double>> decoratedSpans(const PlacedGlyphRun& run, bool byWord) {
  const PangoGlyphString* glyphs = run.run->glyphs;
  if (!byWord) {
    return {{0, runAdvance(run.run)}};
  }
  std::vector<std::pair<double, double>> spans;
  double x = 0;
  for (int i = 0; i < glyphs->num_glyphs; ++i) {
    const double advance = fromPango(glyphs->glyphs[i].geometry.width);
    if (!isWhitespaceAt(run.text, glyphs->log_clusters[i])) {
      if (!spans.empty() && spans.back().second == x) {
        spans.back().second = x + advance;
      } else {
        spans.emplace_back(x, x + advance);
      }
    }
    x += advance;
  }
  return spans;
}

// Dash lengths of a pattern (the mask's pattern bits), in units of the line's thickness.
std::vector<double> dashPattern(int styleMask, double unit) {
  switch (styleMask & 0x0F00) {
    case TextStyleMask::PatternDot:
      return {unit, unit};
    case TextStyleMask::PatternDash:
      return {3 * unit, 2 * unit};
    case TextStyleMask::PatternDashDot:
      return {3 * unit, 1.5 * unit, unit, 1.5 * unit};
    case TextStyleMask::PatternDashDotDot:
      return {3 * unit, 1.5 * unit, unit, 1.5 * unit, unit, 1.5 * unit};
    default:
      return {};
  }
}

}  // namespace

double GlyphRunPainter::expansionFactor(const TextAttributes& attributes) {
  const double factor = std::exp(attributes.expansion);
  return std::isfinite(factor) && factor > 0 ? std::clamp(factor, 0.01, 100.0) : 1.0;
}

void GlyphRunPainter::setColour(const Color& colour) const {
  const double alpha = std::clamp(colour.alpha, 0.0, 1.0);
  if (mode_ == Mode::Coverage) {
    cairo_set_source_rgba(cairo_, 0, 0, 0, alpha);
  } else {
    cairo_set_source_rgba(cairo_, std::clamp(colour.red, 0.0, 1.0), std::clamp(colour.green, 0.0, 1.0),
                          std::clamp(colour.blue, 0.0, 1.0), alpha);
  }
}

void GlyphRunPainter::paintBackground(const PlacedGlyphRun& run) const {
  if (!run.attributes.backgroundColor) {
    return;
  }
  setColour(*run.attributes.backgroundColor);
  cairo_rectangle(cairo_, run.x, run.lineTop, runAdvance(run.run) * expansionFactor(run.attributes),
                  run.lineHeight);
  cairo_fill(cairo_);
}

void GlyphRunPainter::paintGlyphs(const PlacedGlyphRun& run) const {
  const TextAttributes& attributes = run.attributes;
  PangoFont* font = run.run->item->analysis.font;
  const PangoGlyphString* glyphs = run.run->glyphs;
  if (font == nullptr || glyphs->num_glyphs == 0) {
    return;
  }
  cairo_scaled_font_t* shaped = shapedFont(font, attributes);
  if (shaped == nullptr) {
    return;
  }
  // Glyph origins on whole pixels, as the rasterizer's glyph cache draws them anyway: fill and stroke
  // then meet exactly, and text moved by whole pixels keeps its shape.
  const double scale = expansionFactor(attributes);
  const double baseline = run.baseline - fromPango(run.run->y_offset);
  std::vector<cairo_glyph_t> placed;
  placed.reserve(static_cast<std::size_t>(glyphs->num_glyphs));
  double advance = 0;
  for (int i = 0; i < glyphs->num_glyphs; ++i) {
    const PangoGlyphInfo& info = glyphs->glyphs[i];
    if ((info.glyph & PANGO_GLYPH_UNKNOWN_FLAG) == 0 && info.glyph != PANGO_GLYPH_EMPTY) {
      placed.push_back(cairo_glyph_t{
          info.glyph, std::floor(run.x + (advance + fromPango(info.geometry.x_offset)) * scale + 0.5),
          std::floor(baseline + fromPango(info.geometry.y_offset) + 0.5)});
    }
    advance += fromPango(info.geometry.width);
  }

  const double strokeWidth = std::isfinite(attributes.strokeWidth) ? attributes.strokeWidth : 0.0;
  cairo_save(cairo_);
  cairo_set_scaled_font(cairo_, shaped);
  if (strokeWidth <= 0) {
    setColour(attributes.foregroundColor);
    cairo_show_glyphs(cairo_, placed.data(), static_cast<int>(placed.size()));
  }
  if (strokeWidth != 0) {
    PangoFontDescription* description = pango_font_describe(font);
    const double lineWidth =
        std::abs(strokeWidth) / 100.0 * fromPango(pango_font_description_get_size(description));
    pango_font_description_free(description);
    setColour(attributes.strokeColor.value_or(attributes.foregroundColor));
    StrokedGlyphCache& cache = StrokedGlyphCache::forThisThread();
    // Masks in the target's pixels, which the drawing may scale to an output's density.
    const double density = deviceScale(cairo_);
    cairo_scale(cairo_, 1 / density, 1 / density);
    for (const cairo_glyph_t& glyph : placed) {
      const StrokedGlyphCache::Mask mask = cache.mask(shaped, glyph.index, lineWidth, density);
      if (mask.surface != nullptr) {
        cairo_mask_surface(cairo_, mask.surface, glyph.x * density + mask.x, glyph.y * density + mask.y);
      }
    }
  }
  cairo_restore(cairo_);
  cairo_scaled_font_destroy(shaped);
}

double GlyphRunPainter::deviceScale(cairo_t* cairo) {
  double across = 1;
  double down = 0;
  cairo_user_to_device_distance(cairo, &across, &down);
  return std::hypot(across, down);
}

// The run's font with its expansion and obliqueness in the glyph shapes (expansion stretches, and
// obliqueness shears around the baseline, leaning right for positive values), placing glyphs in pixels.
cairo_scaled_font_t* GlyphRunPainter::shapedFont(PangoFont* font, const TextAttributes& attributes) {
  cairo_scaled_font_t* base = pango_cairo_font_get_scaled_font(PANGO_CAIRO_FONT(font));
  if (base == nullptr || cairo_scaled_font_status(base) != CAIRO_STATUS_SUCCESS) {
    return nullptr;
  }
  const double obliqueness =
      std::isfinite(attributes.obliqueness) ? std::clamp(attributes.obliqueness, -10.0, 10.0) : 0.0;
  cairo_matrix_t fontMatrix;
  cairo_matrix_t deviceMatrix;
  cairo_scaled_font_get_font_matrix(base, &fontMatrix);
  cairo_scaled_font_get_ctm(base, &deviceMatrix);
  cairo_matrix_t shape;
  cairo_matrix_init(&shape, expansionFactor(attributes), 0, -obliqueness, 1, 0, 0);
  cairo_matrix_t shapedMatrix;
  cairo_matrix_multiply(&shapedMatrix, &fontMatrix, &deviceMatrix);
  cairo_matrix_multiply(&shapedMatrix, &shapedMatrix, &shape);
  cairo_matrix_t identity;
  cairo_matrix_init_identity(&identity);
  cairo_font_options_t* options = cairo_font_options_create();
  cairo_scaled_font_get_font_options(base, options);
  cairo_scaled_font_t* shaped =
      cairo_scaled_font_create(cairo_scaled_font_get_font_face(base), &shapedMatrix, &identity, options);
  cairo_font_options_destroy(options);
  if (cairo_scaled_font_status(shaped) != CAIRO_STATUS_SUCCESS) {
    cairo_scaled_font_destroy(shaped);
    return nullptr;
  }
  return shaped;
}

void GlyphRunPainter::paintDecorations(const PlacedGlyphRun& run) const {
  const TextAttributes& attributes = run.attributes;
  if ((attributes.underlineStyle & 0xFF) == 0 && (attributes.strikethroughStyle & 0xFF) == 0) {
    return;
  }
  PangoFont* font = run.run->item->analysis.font;
  if (font == nullptr) {
    return;
  }
  PangoFontMetrics* metrics = pango_font_get_metrics(font, nullptr);
  const double underlinePosition = fromPango(pango_font_metrics_get_underline_position(metrics));
  const double underlineThickness = fromPango(pango_font_metrics_get_underline_thickness(metrics));
  const double strikethroughPosition = fromPango(pango_font_metrics_get_strikethrough_position(metrics));
  const double strikethroughThickness = fromPango(pango_font_metrics_get_strikethrough_thickness(metrics));
  pango_font_metrics_unref(metrics);

  paintLine(run, attributes.underlineStyle, underlinePosition, underlineThickness,
            attributes.underlineColor.value_or(attributes.foregroundColor));
  paintLine(run, attributes.strikethroughStyle, strikethroughPosition, strikethroughThickness,
            attributes.strikethroughColor.value_or(attributes.foregroundColor));
}

// position is the distance of the line's top above the baseline, as fonts give it.
void GlyphRunPainter::paintLine(const PlacedGlyphRun& run, int styleMask, double position, double thickness,
                                const Color& colour) const {
  const int style = styleMask & 0xFF;
  if (style == 0) {
    return;
  }
  thickness = std::max(thickness, 1.0);
  std::vector<double> offsets;  // centres of the lines, below the font's line top
  double width = thickness;
  if (style == TextStyleMask::Thick) {
    width = 2 * thickness;
    offsets = {thickness};
  } else if (style == TextStyleMask::Double) {
    offsets = {thickness / 2, thickness * 2.5};
  } else {
    offsets = {thickness / 2};
  }
  const double top = run.baseline - fromPango(run.run->y_offset) - position;
  const double scale = expansionFactor(run.attributes);
  const std::vector<double> dashes = dashPattern(styleMask, width);

  cairo_save(cairo_);
  setColour(colour);
  cairo_set_line_width(cairo_, width);
  cairo_set_line_cap(cairo_, CAIRO_LINE_CAP_BUTT);
  cairo_set_dash(cairo_, dashes.data(), static_cast<int>(dashes.size()), 0);
  for (const auto& [from, to] : decoratedSpans(run, (styleMask & TextStyleMask::ByWord) != 0)) {
    for (double offset : offsets) {
      cairo_move_to(cairo_, run.x + from * scale, top + offset);
      cairo_line_to(cairo_, run.x + to * scale, top + offset);
    }
  }
  cairo_stroke(cairo_);
  cairo_restore(cairo_);
}

}  // namespace qva
