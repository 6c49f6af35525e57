#include "foundation/text/TextLayout.h"

#include <cairo.h>
#include <pango/pangocairo.h>
#include <unicode/brkiter.h>
#include <unicode/locid.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include "foundation/image/GaussianBlur.h"
#include "foundation/text/FontCatalogue.h"
#include "foundation/text/GlyphRunPainter.h"
#include "foundation/text/TextEncoding.h"

namespace qva {

namespace {

// Beyond these, Pango's integer units and the rasterizer's fixed-point coordinates run out.
constexpr double kMaximumExtent = 1.0e6;
constexpr double kMaximumFontSize = 4000;
constexpr double kDefaultFontSize = 12;
// The tab interval of a paragraph style without tab stops or an interval of its own.
constexpr double kDefaultTabInterval = 28;
constexpr int kMaximumTabStops = 256;
// Cairo's image surfaces take at most this many pixels on a side; larger bitmaps are drawn in tiles.
constexpr int kMaximumSurfaceSide = 32767;
// Pango spends time quadratic in the paragraphs of one layout, and its integer units overflow on lines
// of millions of pixels: a block takes paragraphs up to this many characters, and a wrapped paragraph
// longer than the other limit continues in a new block after a space.
constexpr std::size_t kBlockCharacters = 4096;
constexpr std::size_t kWrappedChunkCharacters = 16384;

double fromPango(int units) {
  return static_cast<double>(units) / PANGO_SCALE;
}

int toPango(double pixels) {
  return static_cast<int>(std::lround(std::clamp(pixels, -kMaximumExtent, kMaximumExtent) * PANGO_SCALE));
}

bool isParagraphSeparator(char16_t c) {
  return c == u'\n' || c == u'\r' || c == u'\u2029';
}

PangoFontDescription* newFontDescription(const FontDescriptor& font) {
  const FontDescriptor resolved = FontCatalogue::shared().resolvedFont(font);
  PangoFontDescription* description = pango_font_description_new();
  pango_font_description_set_family(description, resolved.family.c_str());
  double size = resolved.pointSize;
  if (!std::isfinite(size) || size <= 0) {
    size = kDefaultFontSize;
  }
  // One point is one pixel.
  pango_font_description_set_absolute_size(description, std::min(size, kMaximumFontSize) * PANGO_SCALE);
  pango_font_description_set_weight(description, resolved.bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
  pango_font_description_set_style(description, resolved.italic ? PANGO_STYLE_ITALIC : PANGO_STYLE_NORMAL);
  return description;
}

void insertAttribute(PangoAttrList* list, PangoAttribute* attribute, int start, int end) {
  attribute->start_index = static_cast<guint>(start);
  attribute->end_index = static_cast<guint>(end);
  pango_attr_list_insert(list, attribute);
}

PangoTabAlign tabAlign(const TabStop& stop) {
  if (stop.decimal) {
    return PANGO_TAB_DECIMAL;
  }
  switch (stop.alignment) {
    case TextAlignment::Right:
      return PANGO_TAB_RIGHT;
    case TextAlignment::Center:
      return PANGO_TAB_CENTER;
    default:
      return PANGO_TAB_LEFT;
  }
}

// The paragraph style's tab stops from the paragraph's left edge, continued at its default interval.
PangoTabArray* newTabArray(const ParagraphStyle& style, double left, double width) {
  std::vector<TabStop> stops = style.tabStops;
  std::sort(stops.begin(), stops.end(),
            [](const TabStop& a, const TabStop& b) { return a.location < b.location; });
  const double interval = style.defaultTabInterval > 0 ? style.defaultTabInterval
                          : stops.empty()              ? kDefaultTabInterval
                                                       : 0;
  if (interval > 0) {
    double next = stops.empty() ? interval : (std::floor(stops.back().location / interval) + 1) * interval;
    const double end = std::max(width, 2048.0);
    while (next <= end && static_cast<int>(stops.size()) < kMaximumTabStops) {
      stops.push_back(TabStop{next, TextAlignment::Left});
      next += interval;
    }
  }
  if (stops.size() > static_cast<std::size_t>(kMaximumTabStops)) {
    stops.resize(kMaximumTabStops);
  }
  PangoTabArray* tabs = pango_tab_array_new(static_cast<int>(stops.size()), FALSE);
  for (std::size_t i = 0; i < stops.size(); ++i) {
    pango_tab_array_set_tab(tabs, static_cast<int>(i), tabAlign(stops[i]),
                            toPango(std::max(stops[i].location - left, 0.0)));
  }
  return tabs;
}

bool finitePositive(double value) {
  return std::isfinite(value) && value > 0;
}

}  // namespace

struct TextLayout::Lines {
  struct Segment {
    int byteStart;
    std::size_t attributes;
  };
  struct Line {
    PangoLayoutLine* line;
    double x;
    double top;
    double height;
    double baseline;
    double width;
    // What the line's glyphs cover beyond its own rectangle, from its left edge and its top.
    TextRect ink;
  };
  // Consecutive paragraphs with one paragraph style share one Pango layout.
  struct Block {
    PangoLayout* layout = nullptr;
    std::string text;
    std::vector<Segment> segments;
    std::vector<Line> lines;
    ParagraphStyle style;
    // The block goes on with the paragraph the block before it left unfinished.
    bool continuation = false;
    // Its lines break at the container's width (any line break mode but Clip, in a container with one).
    bool wraps = false;
    double left = 0;
    double width = 0;
  };

  Container container;
  std::vector<TextAttributes> attributeSets;
  std::vector<Block> blocks;
  PangoContext* context = nullptr;
  TextRect used;
  // The rectangle the glyphs of all lines cover, with their line rectangles.
  TextRect inked;
  std::size_t lineCount = 0;
  double fittedHeight = 0;

  Lines() = default;
  Lines(const Lines&) = delete;
  Lines& operator=(const Lines&) = delete;
  ~Lines() {
    for (Block& block : blocks) {
      if (block.layout != nullptr) {
        g_object_unref(block.layout);
      }
    }
    if (context != nullptr) {
      g_object_unref(context);
    }
  }

  const TextAttributes& attributesOf(const Block& block, int byteOffset) const {
    auto segment = std::upper_bound(block.segments.begin(), block.segments.end(), byteOffset,
                                    [](int offset, const Segment& s) { return offset < s.byteStart; });
    return attributeSets[segment == block.segments.begin() ? 0 : std::prev(segment)->attributes];
  }

  std::size_t attributeSetIndex(const TextAttributes& attributes) {
    for (std::size_t i = attributeSets.size(); i-- > 0;) {
      if (attributeSets[i] == attributes) {
        return i;
      }
    }
    attributeSets.push_back(attributes);
    return attributeSets.size() - 1;
  }

  void build(const AttributedString& text);
  void addBlock(const AttributedString& text, const std::vector<AttributedString::Run>& runs,
                std::size_t start, std::size_t end, bool continuation);
  void layOutBlock(Block& block);
  void placeLines();
  void forEachRun(const Block& block, const Line& line, double left, double top,
                  const std::function<void(const PlacedGlyphRun&)>& paint) const;
  void drawTile(cairo_t* cairo, double left, double top, const TextRect& tile) const;
  void drawShadow(cairo_t* cairo, const TextShadow& shadow, double left, double top,
                  const TextRect& tile) const;
  bool lineVisible(const Line& line) const;
};

void TextLayout::Lines::build(const AttributedString& text) {
  context = pango_font_map_create_context(pango_cairo_font_map_get_default());
  pango_cairo_context_set_resolution(context, 72);
  // Unhinted outlines at fractional positions: text moved by a fraction of a pixel moves smoothly.
  cairo_font_options_t* options = cairo_font_options_create();
  cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
  cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
  cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
  pango_cairo_context_set_font_options(context, options);
  cairo_font_options_destroy(options);
  pango_context_set_round_glyph_positions(context, FALSE);

  const std::u16string& characters = text.text();
  if (characters.empty()) {
    return;
  }
  // Split into blocks where the paragraph style changes or a block grows long; a block holds its inner
  // separators.
  const std::vector<AttributedString::Run> runs = text.runs();
  std::size_t blockStart = 0;
  bool continuation = false;
  // Whether the paragraph style at the block's start wraps, so that a long paragraph may go on in a
  // new block after a space.
  auto wrapsInChunks = [&] {
    const LineBreakMode mode = text.attributesAt(blockStart).paragraphStyle.lineBreakMode;
    return container.width && (mode == LineBreakMode::WordWrap || mode == LineBreakMode::CharWrap);
  };
  bool chunked = wrapsInChunks();
  for (std::size_t i = 0; i < characters.size(); ++i) {
    if (!isParagraphSeparator(characters[i])) {
      if (chunked && characters[i] == u' ' && i - blockStart >= kWrappedChunkCharacters) {
        addBlock(text, runs, blockStart, i + 1, continuation);
        blockStart = i + 1;
        continuation = true;
      }
      continue;
    }
    std::size_t separatorEnd = i + 1;
    if (characters[i] == u'\r' && separatorEnd < characters.size() && characters[separatorEnd] == u'\n') {
      ++separatorEnd;
    }
    if (separatorEnd < characters.size() &&
        (i - blockStart >= kBlockCharacters ||
         !(text.attributesAt(separatorEnd).paragraphStyle == text.attributesAt(blockStart).paragraphStyle))) {
      addBlock(text, runs, blockStart, i, continuation);
      blockStart = separatorEnd;
      continuation = false;
      chunked = wrapsInChunks();
    }
    i = separatorEnd - 1;
  }
  addBlock(text, runs, blockStart, characters.size(), continuation);
  for (Block& block : blocks) {
    layOutBlock(block);
  }
  placeLines();
}

void TextLayout::Lines::addBlock(const AttributedString& text, const std::vector<AttributedString::Run>& runs,
                                 std::size_t start, std::size_t end, bool continuation) {
  Block& block = blocks.emplace_back();
  block.continuation = continuation;
  const TextAttributes& first = text.attributesAt(std::min(start, text.length() - 1));
  block.style = first.paragraphStyle;
  PangoAttrList* list = pango_attr_list_new();
  // From the run that holds the block's start, up to the first run past its end.
  auto run = std::upper_bound(
      runs.begin(), runs.end(), start,
      [](std::size_t location, const AttributedString::Run& r) { return location < r.location; });
  for (run = run == runs.begin() ? run : std::prev(run); run != runs.end() && run->location < end; ++run) {
    const std::size_t from = std::max(run->location, start);
    const std::size_t to = std::min(run->location + run->length, end);
    if (from >= to) {
      continue;
    }
    const int byteStart = static_cast<int>(block.text.size());
    block.text += TextEncoding::utf8FromUtf16(std::u16string_view(text.text()).substr(from, to - from));
    const int byteEnd = static_cast<int>(block.text.size());
    const std::size_t index = attributeSetIndex(run->attributes);
    block.segments.push_back(Segment{byteStart, index});

    const TextAttributes& attributes = run->attributes;
    PangoFontDescription* font = newFontDescription(attributes.font);
    insertAttribute(list, pango_attr_font_desc_new(font), byteStart, byteEnd);
    pango_font_description_free(font);
    // A distinct colour per run makes Pango itemize at every run edge, so each glyph run maps to
    // exactly one attribute set; the colour itself is never drawn.
    const auto segmentNumber = static_cast<std::uint32_t>(block.segments.size());
    insertAttribute(list,
                    pango_attr_foreground_new(static_cast<guint16>(segmentNumber & 0xFFFF),
                                              static_cast<guint16>(segmentNumber >> 16), 0),
                    byteStart, byteEnd);
    if (std::isfinite(attributes.kerning) && attributes.kerning != 0) {
      insertAttribute(list, pango_attr_letter_spacing_new(toPango(attributes.kerning)), byteStart, byteEnd);
    }
    if (std::isfinite(attributes.baselineOffset) && attributes.baselineOffset != 0) {
      insertAttribute(list, pango_attr_rise_new(toPango(attributes.baselineOffset)), byteStart, byteEnd);
    }
    if (attributes.superscript != 0) {
      const bool up = attributes.superscript > 0;
      insertAttribute(list,
                      pango_attr_baseline_shift_new(up ? PANGO_BASELINE_SHIFT_SUPERSCRIPT
                                                       : PANGO_BASELINE_SHIFT_SUBSCRIPT),
                      byteStart, byteEnd);
      insertAttribute(
          list, pango_attr_font_scale_new(up ? PANGO_FONT_SCALE_SUPERSCRIPT : PANGO_FONT_SCALE_SUBSCRIPT),
          byteStart, byteEnd);
    }
    if (attributes.ligature != 1) {
      insertAttribute(list,
                      pango_attr_font_features_new(attributes.ligature == 0 ? "liga 0, clig 0" : "dlig 1"),
                      byteStart, byteEnd);
    }
  }
  block.layout = pango_layout_new(context);
  PangoFontDescription* font = newFontDescription(first.font);
  pango_layout_set_font_description(block.layout, font);
  pango_font_description_free(font);
  pango_layout_set_text(block.layout, block.text.data(), static_cast<int>(block.text.size()));
  pango_layout_set_attributes(block.layout, list);
  pango_attr_list_unref(list);
}

void TextLayout::Lines::layOutBlock(Block& block) {
  const ParagraphStyle& style = block.style;
  PangoLayout* layout = block.layout;
  const double head = std::isfinite(style.headIndent) ? std::max(style.headIndent, 0.0) : 0.0;
  block.left = head;
  if (container.width) {
    const double tail = std::isfinite(style.tailIndent) ? style.tailIndent : 0.0;
    const double right = tail > 0 ? tail : *container.width + tail;
    block.width = std::max(right - head, 1.0);
  }
  block.wraps = container.width.has_value() && style.lineBreakMode != LineBreakMode::Clip;
  if (block.wraps) {
    // Pango breaks lines counting the letter spacing after a line's last letter, which takes no room
    // on the page; without that allowance a line as wide as the text's natural width would break.
    double spacing = 0;
    for (const Segment& segment : block.segments) {
      const double kerning = attributeSets[segment.attributes].kerning;
      spacing = std::max(spacing, std::isfinite(kerning) ? std::abs(kerning) : 0.0);
    }
    pango_layout_set_width(layout, toPango(block.width + spacing));
    switch (style.lineBreakMode) {
      case LineBreakMode::CharWrap:
        pango_layout_set_wrap(layout, PANGO_WRAP_CHAR);
        break;
      case LineBreakMode::TruncateHead:
        pango_layout_set_ellipsize(layout, PANGO_ELLIPSIZE_START);
        break;
      case LineBreakMode::TruncateMiddle:
        pango_layout_set_ellipsize(layout, PANGO_ELLIPSIZE_MIDDLE);
        break;
      case LineBreakMode::TruncateTail:
        pango_layout_set_ellipsize(layout, PANGO_ELLIPSIZE_END);
        break;
      default:
        pango_layout_set_wrap(layout, PANGO_WRAP_WORD_CHAR);
        break;
    }
  }
  const double firstLine = std::isfinite(style.firstLineHeadIndent) ? style.firstLineHeadIndent : 0.0;
  pango_layout_set_indent(layout, block.continuation ? 0 : toPango(std::max(firstLine, 0.0) - head));
  PangoTabArray* tabs = newTabArray(style, head, block.width);
  pango_layout_set_tabs(layout, tabs);
  pango_tab_array_free(tabs);
  pango_layout_set_justify(layout, style.alignment == TextAlignment::Justified);

  // Pango aligns by the paragraph's direction; left and right are meant on the page, so they swap
  // for right-to-left text.
  auto pangoAlignment = [&](bool rightToLeft) {
    switch (style.alignment) {
      case TextAlignment::Center:
        return PANGO_ALIGN_CENTER;
      case TextAlignment::Right:
        return rightToLeft ? PANGO_ALIGN_LEFT : PANGO_ALIGN_RIGHT;
      case TextAlignment::Left:
        return rightToLeft ? PANGO_ALIGN_RIGHT : PANGO_ALIGN_LEFT;
      default:
        return PANGO_ALIGN_LEFT;
    }
  };
  pango_layout_set_alignment(layout, pangoAlignment(false));
  if (pango_layout_get_line_count(layout) > 0 &&
      pango_layout_line_get_resolved_direction(pango_layout_get_line_readonly(layout, 0)) ==
          PANGO_DIRECTION_RTL) {
    pango_layout_set_alignment(layout, pangoAlignment(true));
  }
}

void TextLayout::Lines::placeLines() {
  // Where lines stand on the page: Pango places them within its layout's width; unwrapped blocks are
  // then aligned within the container, or within the widest block when the container has no width.
  double widest = 0;
  for (const Block& block : blocks) {
    PangoRectangle logical;
    pango_layout_get_extents(block.layout, nullptr, &logical);
    widest = std::max(widest, block.left + fromPango(logical.width));
  }
  double y = 0;
  bool firstLine = true;
  double spacingAfterParagraph = 0;
  for (Block& block : blocks) {
    const ParagraphStyle& style = block.style;
    PangoRectangle layoutExtents;
    pango_layout_get_extents(block.layout, nullptr, &layoutExtents);
    const double available = container.width ? block.width : widest - block.left;
    double blockShift = 0;
    PangoLayoutIter* iter = pango_layout_get_iter(block.layout);
    do {
      PangoLayoutLine* line = pango_layout_iter_get_line_readonly(iter);
      PangoRectangle ink;
      PangoRectangle logical;
      pango_layout_iter_get_line_extents(iter, &ink, &logical);
      const double baseline = fromPango(pango_layout_iter_get_baseline(iter));
      const bool rightToLeft = pango_layout_line_get_resolved_direction(line) == PANGO_DIRECTION_RTL;
      double alignment = rightToLeft ? 1.0 : 0.0;
      if (style.alignment == TextAlignment::Center) {
        alignment = 0.5;
      } else if (style.alignment == TextAlignment::Left) {
        alignment = 0;
      } else if (style.alignment == TextAlignment::Right) {
        alignment = 1;
      }
      if (!block.wraps) {
        blockShift = alignment * (available - fromPango(layoutExtents.width));
      }
      // Expansion widens runs beyond what Pango measured; the line keeps its alignment.
      double width = 0;
      for (GSList* item = line->runs; item != nullptr; item = item->next) {
        auto* run = static_cast<PangoGlyphItem*>(item->data);
        width +=
            fromPango(run->start_x_offset + pango_glyph_string_get_width(run->glyphs) + run->end_x_offset) *
            GlyphRunPainter::expansionFactor(attributesOf(block, run->item->offset));
      }
      const double pangoWidth = fromPango(logical.width);
      const double x = block.left + blockShift + fromPango(logical.x) - alignment * (width - pangoWidth);

      const double naturalHeight = fromPango(logical.height);
      const double descent = fromPango(logical.y + logical.height) - baseline;
      double height = naturalHeight;
      if (finitePositive(style.lineHeightMultiple)) {
        height *= style.lineHeightMultiple;
      }
      if (finitePositive(style.minimumLineHeight)) {
        height = std::max(height, style.minimumLineHeight);
      }
      if (finitePositive(style.maximumLineHeight)) {
        height = std::min(height, style.maximumLineHeight);
      }
      if (!firstLine) {
        y += finitePositive(style.lineSpacing) ? style.lineSpacing : 0.0;
        if (pango_layout_line_is_paragraph_start(line) && !(block.continuation && block.lines.empty())) {
          y += spacingAfterParagraph +
               (finitePositive(style.paragraphSpacingBefore) ? style.paragraphSpacingBefore : 0.0);
        }
      }
      firstLine = false;
      spacingAfterParagraph = finitePositive(style.paragraphSpacing) ? style.paragraphSpacing : 0.0;
      const double inkTop = height - descent + fromPango(ink.y) - baseline;
      const TextRect inkRect{fromPango(ink.x - logical.x), inkTop, fromPango(ink.width) + width - pangoWidth,
                             fromPango(ink.height)};
      block.lines.push_back(Line{line, x, y, height, height - descent, width, inkRect});
      y += height;
    } while (pango_layout_iter_next_line(iter));
    pango_layout_iter_free(iter);
  }

  double left = std::numeric_limits<double>::max();
  double right = std::numeric_limits<double>::lowest();
  double inkLeft = left;
  double inkRight = right;
  double inkTop = 0;
  double inkBottom = 0;
  for (const Block& block : blocks) {
    for (const Line& line : block.lines) {
      left = std::min(left, line.x);
      right = std::max(right, line.x + line.width);
      inkLeft = std::min({inkLeft, line.x, line.x + line.ink.x});
      inkRight = std::max({inkRight, line.x + line.width, line.x + line.ink.x + line.ink.width});
      inkTop = std::min(inkTop, line.top + line.ink.y);
      inkBottom = std::max({inkBottom, line.top + line.height, line.top + line.ink.y + line.ink.height});
      ++lineCount;
      const double bottom = line.top + line.height;
      if (lineVisible(line)) {
        fittedHeight = std::max(fittedHeight, bottom);
      }
    }
  }
  if (lineCount > 0) {
    used = TextRect{left, 0, std::max(right - left, 0.0), y};
    inked = TextRect{inkLeft, inkTop, inkRight - inkLeft, inkBottom - inkTop};
  }
}

bool TextLayout::Lines::lineVisible(const Line& line) const {
  return !container.height || line.top + line.height <= *container.height;
}

void TextLayout::Lines::forEachRun(const Block& block, const Line& line, double left, double top,
                                   const std::function<void(const PlacedGlyphRun&)>& paint) const {
  double x = left + line.x;
  for (GSList* item = line.line->runs; item != nullptr; item = item->next) {
    auto* run = static_cast<PangoGlyphItem*>(item->data);
    const TextAttributes& attributes = attributesOf(block, run->item->offset);
    const double scale = GlyphRunPainter::expansionFactor(attributes);
    x += fromPango(run->start_x_offset) * scale;
    const std::string_view runText = std::string_view(block.text)
                                         .substr(static_cast<std::size_t>(run->item->offset),
                                                 static_cast<std::size_t>(std::max(run->item->length, 0)));
    paint(PlacedGlyphRun{run, runText, attributes, x, top + line.top + line.baseline, top + line.top,
                         line.height});
    x += fromPango(pango_glyph_string_get_width(run->glyphs) + run->end_x_offset) * scale;
  }
}

void TextLayout::Lines::drawShadow(cairo_t* cairo, const TextShadow& shadow, double left, double top,
                                   const TextRect& tile) const {
  const double sigma = std::isfinite(shadow.blurRadius) ? std::clamp(shadow.blurRadius / 2, 0.0, 500.0) : 0.0;
  const double dx =
      std::isfinite(shadow.offsetX) ? std::clamp(shadow.offsetX, -kMaximumExtent, kMaximumExtent) : 0.0;
  const double dy =
      std::isfinite(shadow.offsetY) ? std::clamp(-shadow.offsetY, -kMaximumExtent, kMaximumExtent) : 0.0;
  // The part of the text whose shadow can reach the tile, with room for what glyph outlines do not
  // cover (strokes, slants) and for the blur.
  double reach = 0;
  for (const TextAttributes& attributes : attributeSets) {
    if (attributes.shadow == shadow) {
      reach =
          std::max(reach, std::min(attributes.font.pointSize, kMaximumFontSize) *
                              (std::abs(attributes.obliqueness) + std::abs(attributes.strokeWidth) / 100));
    }
  }
  const double margin = 3 * sigma + reach + 2;
  const double fromX = std::max(left + inked.x - margin, tile.x - dx - 3 * sigma - 1);
  const double toX =
      std::min(left + inked.x + inked.width + margin, tile.x + tile.width - dx + 3 * sigma + 1);
  const double fromY = std::max(top + inked.y - margin, tile.y - dy - 3 * sigma - 1);
  const double toY =
      std::min(top + inked.y + inked.height + margin, tile.y + tile.height - dy + 3 * sigma + 1);
  if (toX <= fromX || toY <= fromY) {
    return;
  }
  // The mask has the target's pixels, which the drawing may scale to an output's density: a sharp
  // shadow stays as sharp as its text.
  const double scale = GlyphRunPainter::deviceScale(cairo);
  const int maskX = static_cast<int>(std::floor(fromX * scale));
  const int maskY = static_cast<int>(std::floor(fromY * scale));
  const int maskWidth = std::min(static_cast<int>(std::ceil(toX * scale)) - maskX, kMaximumSurfaceSide);
  const int maskHeight = std::min(static_cast<int>(std::ceil(toY * scale)) - maskY, kMaximumSurfaceSide);
  cairo_surface_t* mask = cairo_image_surface_create(CAIRO_FORMAT_A8, maskWidth, maskHeight);
  if (cairo_surface_status(mask) != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(mask);
    return;
  }
  cairo_t* maskCairo = cairo_create(mask);
  cairo_translate(maskCairo, -maskX, -maskY);
  cairo_scale(maskCairo, scale, scale);
  const GlyphRunPainter painter(maskCairo, GlyphRunPainter::Mode::Coverage);
  for (const Block& block : blocks) {
    for (const Line& line : block.lines) {
      if (!lineVisible(line)) {
        continue;
      }
      forEachRun(block, line, left, top, [&](const PlacedGlyphRun& run) {
        if (run.attributes.shadow == shadow) {
          painter.paintGlyphs(run);
          painter.paintDecorations(run);
        }
      });
    }
  }
  cairo_destroy(maskCairo);
  cairo_surface_flush(mask);
  GaussianBlur::blurAlpha(cairo_image_surface_get_data(mask), maskWidth, maskHeight,
                          static_cast<std::size_t>(cairo_image_surface_get_stride(mask)), sigma * scale);
  cairo_surface_mark_dirty(mask);

  const Color& colour = shadow.color;
  cairo_set_source_rgba(cairo, std::clamp(colour.red, 0.0, 1.0), std::clamp(colour.green, 0.0, 1.0),
                        std::clamp(colour.blue, 0.0, 1.0), std::clamp(colour.alpha, 0.0, 1.0));
  cairo_save(cairo);
  cairo_scale(cairo, 1 / scale, 1 / scale);
  cairo_mask_surface(cairo, mask, maskX + dx * scale, maskY + dy * scale);
  cairo_restore(cairo);
  cairo_surface_destroy(mask);
}

void TextLayout::Lines::drawTile(cairo_t* cairo, double left, double top, const TextRect& tile) const {
  const GlyphRunPainter painter(cairo, GlyphRunPainter::Mode::Colour);
  auto eachVisibleBlock = [&](const std::function<void(const Block&, const Line&)>& paintLine) {
    for (const Block& block : blocks) {
      const bool clips = container.width && !block.wraps;
      if (clips) {
        cairo_save(cairo);
        cairo_rectangle(cairo, left + block.left, tile.y, block.width, tile.height);
        cairo_clip(cairo);
      }
      for (const Line& line : block.lines) {
        if (lineVisible(line)) {
          paintLine(block, line);
        }
      }
      if (clips) {
        cairo_restore(cairo);
      }
    }
  };
  eachVisibleBlock([&](const Block& block, const Line& line) {
    forEachRun(block, line, left, top, [&](const PlacedGlyphRun& run) { painter.paintBackground(run); });
  });
  std::vector<TextShadow> shadows;
  for (const TextAttributes& attributes : attributeSets) {
    if (attributes.shadow && std::find(shadows.begin(), shadows.end(), *attributes.shadow) == shadows.end()) {
      shadows.push_back(*attributes.shadow);
    }
  }
  for (const TextShadow& shadow : shadows) {
    drawShadow(cairo, shadow, left, top, tile);
  }
  eachVisibleBlock([&](const Block& block, const Line& line) {
    forEachRun(block, line, left, top, [&](const PlacedGlyphRun& run) {
      painter.paintGlyphs(run);
      painter.paintDecorations(run);
    });
  });
}

TextLayout::TextLayout(const AttributedString& text, Container container)
    : lines_(std::make_unique<Lines>()) {
  auto limit = [](std::optional<double> side) -> std::optional<double> {
    if (!side || std::isnan(*side) || *side >= kMaximumExtent) {
      return std::nullopt;
    }
    return std::max(*side, 0.0);
  };
  lines_->container = Container{limit(container.width), limit(container.height)};
  lines_->build(text);
}

TextLayout::~TextLayout() = default;
TextLayout::TextLayout(TextLayout&& other) noexcept = default;
TextLayout& TextLayout::operator=(TextLayout&& other) noexcept = default;

TextSize TextLayout::naturalSize(const AttributedString& text) {
  const TextRect used = TextLayout(text).usedRect();
  return TextSize{used.width, used.height};
}

const TextLayout::Container& TextLayout::container() const {
  return lines_->container;
}

TextRect TextLayout::usedRect() const {
  return lines_->used;
}

std::size_t TextLayout::lineCount() const {
  return lines_->lineCount;
}

double TextLayout::fittedHeight() const {
  return lines_->fittedHeight;
}

void TextLayout::draw(Bitmap& bitmap, double left, double top, double scale) const {
  if (lines_->lineCount == 0 || bitmap.bytes() == nullptr || bitmap.rowBytes() % 4 != 0 ||
      !std::isfinite(left) || !std::isfinite(top) || !(scale > 0) || !std::isfinite(scale)) {
    return;
  }
  for (int tileY = 0; tileY < bitmap.height(); tileY += kMaximumSurfaceSide) {
    for (int tileX = 0; tileX < bitmap.width(); tileX += kMaximumSurfaceSide) {
      const int width = std::min(kMaximumSurfaceSide, bitmap.width() - tileX);
      const int height = std::min(kMaximumSurfaceSide, bitmap.height() - tileY);
      cairo_surface_t* surface = cairo_image_surface_create_for_data(
          bitmap.row(tileY) + static_cast<std::size_t>(tileX) * 4, CAIRO_FORMAT_ARGB32, width, height,
          static_cast<int>(bitmap.rowBytes()));
      if (cairo_surface_status(surface) == CAIRO_STATUS_SUCCESS) {
        cairo_t* cairo = cairo_create(surface);
        cairo_translate(cairo, -tileX, -tileY);
        cairo_scale(cairo, scale, scale);
        lines_->drawTile(cairo, left, top,
                         TextRect{tileX / scale, tileY / scale, width / scale, height / scale});
        cairo_destroy(cairo);
        cairo_surface_flush(surface);
      }
      cairo_surface_destroy(surface);
    }
  }
}

std::size_t TextLayout::wordCount(std::u16string_view text) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::BreakIterator> words(
      icu::BreakIterator::createWordInstance(icu::Locale::getRoot(), status));
  if (U_FAILURE(status) || !words) {
    return 0;
  }
  icu::UnicodeString string(false, reinterpret_cast<const UChar*>(text.data()),
                            static_cast<int32_t>(text.size()));
  words->setText(string);
  std::size_t count = 0;
  for (int32_t end = words->next(); end != icu::BreakIterator::DONE; end = words->next()) {
    if (words->getRuleStatus() != UBRK_WORD_NONE) {
      ++count;
    }
  }
  return count;
}

}  // namespace qva
