#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <numeric>
#include <string>

#include "foundation/image/GaussianBlur.h"
#include "foundation/text/FontCatalogue.h"
#include "foundation/text/TextLayout.h"

namespace qva {
namespace {

// The project's font configuration, also when the executable runs outside CTest.
const bool kProjectFonts = setenv("FONTCONFIG_FILE", QVA_SOURCE_DIR "/data/fonts/fonts.conf", 0) == 0;

TextAttributes style(double size = 40, Color colour = {1, 0, 0, 1}) {
  TextAttributes attributes;
  attributes.font.family = "LucidaGrande";
  attributes.font.pointSize = size;
  attributes.foregroundColor = colour;
  return attributes;
}

AttributedString text(const char* utf8, const TextAttributes& attributes = style()) {
  return AttributedString::fromUtf8(utf8, attributes);
}

Bitmap drawn(const TextLayout& layout, int width, int height, double left = 0, double top = 0) {
  auto pixels = Bitmap::allocate(width, height, Bitmap::paddedRowBytes(static_cast<std::size_t>(width)));
  EXPECT_TRUE(pixels.has_value());
  layout.draw(*pixels, left, top);
  return std::move(*pixels);
}

Bitmap drawn(const AttributedString& string, TextLayout::Container container, int width, int height,
             double left = 0, double top = 0) {
  return drawn(TextLayout(string, container), width, height, left, top);
}

const std::uint8_t* pixel(const Bitmap& pixels, int x, int y) {
  return pixels.row(y) + static_cast<std::size_t>(x) * 4;
}

// The smallest rectangle holding every pixel whose alpha passes the threshold; x and y are -1 when
// there is none.
struct Ink {
  int left = -1, top = -1, right = -1, bottom = -1;
  double centreX = 0;
  double coverage = 0;
};

// Within the columns from fromX up to toX (the whole width when toX is -1) and the rows from fromY up to
// toY (all when -1); x and y stay the bitmap's.
Ink ink(const Bitmap& pixels, int threshold = 0, int fromX = 0, int toX = -1, int fromY = 0, int toY = -1) {
  Ink found;
  double weightedX = 0;
  for (int y = fromY; y < (toY < 0 ? pixels.height() : toY); ++y) {
    for (int x = fromX; x < (toX < 0 ? pixels.width() : toX); ++x) {
      const int alpha = pixel(pixels, x, y)[3];
      weightedX += alpha * (x + 0.5);
      found.coverage += alpha;
      if (alpha > threshold) {
        found.left = found.left < 0 ? x : std::min(found.left, x);
        found.right = std::max(found.right, x);
        found.top = found.top < 0 ? y : found.top;
        found.bottom = y;
      }
    }
  }
  found.centreX = found.coverage > 0 ? weightedX / found.coverage : 0;
  return found;
}

TEST(TextLayoutTest, MeasuresWhatItDraws) {
  const AttributedString line = text("Hello World");
  const TextSize natural = TextLayout::naturalSize(line);
  EXPECT_GT(natural.width, 150);
  EXPECT_LT(natural.width, 300);
  // One line of a 40-pixel font: its ascent and descent.
  EXPECT_NEAR(natural.height, 46.6, 1.5);

  const TextSize twoLines = TextLayout::naturalSize(text("Hello World\nHi"));
  EXPECT_DOUBLE_EQ(twoLines.width, natural.width);
  EXPECT_DOUBLE_EQ(twoLines.height, 2 * natural.height);
  // A trailing line break starts an empty last line, as the text system lays it out.
  EXPECT_DOUBLE_EQ(TextLayout::naturalSize(text("Hello World\n")).height, 2 * natural.height);

  const int width = static_cast<int>(natural.width) + 4;
  const Ink drawnInk =
      ink(drawn(line, {width, natural.height + 2}, width, static_cast<int>(natural.height) + 2));
  EXPECT_GE(drawnInk.left, 0);
  EXPECT_LE(drawnInk.right, width - 1);
  EXPECT_GT(drawnInk.right - drawnInk.left, natural.width - 8);

  const TextLayout empty(AttributedString{}, {100, 100});
  EXPECT_EQ(empty.lineCount(), 0u);
  EXPECT_EQ(empty.fittedHeight(), 0);
  EXPECT_EQ(empty.usedRect().height, 0);
  EXPECT_EQ(TextLayout::naturalSize(AttributedString{}).width, 0);
}

TEST(TextLayoutTest, LineBreakModesWrapClipAndTruncate) {
  const char* sentence = "The quick brown fox jumps over the lazy dog";
  auto withMode = [&](LineBreakMode mode) {
    TextAttributes attributes = style(30);
    attributes.paragraphStyle.lineBreakMode = mode;
    return text(sentence, attributes);
  };
  const TextLayout wrapped(withMode(LineBreakMode::WordWrap), {200, std::nullopt});
  EXPECT_GE(wrapped.lineCount(), 3u);
  EXPECT_LE(wrapped.usedRect().width, 200);
  const TextLayout characters(withMode(LineBreakMode::CharWrap), {200, std::nullopt});
  EXPECT_GE(characters.lineCount(), 3u);
  EXPECT_LE(characters.usedRect().width, 200);

  // Clipping keeps one line and draws nothing past the container's edge.
  const TextLayout clipped(withMode(LineBreakMode::Clip), {200, std::nullopt});
  EXPECT_EQ(clipped.lineCount(), 1u);
  const Ink clippedInk = ink(drawn(clipped, 400, 60, 10));
  EXPECT_LE(clippedInk.right, 210);
  EXPECT_GE(clippedInk.right, 200);

  // Truncation keeps one line per paragraph, shortened with an ellipsis to fit.
  for (LineBreakMode mode :
       {LineBreakMode::TruncateHead, LineBreakMode::TruncateMiddle, LineBreakMode::TruncateTail}) {
    const TextLayout truncated(withMode(mode), {200, std::nullopt});
    EXPECT_EQ(truncated.lineCount(), 1u);
    EXPECT_LE(truncated.usedRect().width, 200);
    EXPECT_GT(truncated.usedRect().width, 100);
  }
  EXPECT_EQ(TextLayout(text("one\ntwo\nthree"), {200, std::nullopt}).lineCount(), 3u);
}

TEST(TextLayoutTest, AlignsEachParagraphInTheContainer) {
  auto placed = [](TextAlignment alignment) {
    TextAttributes attributes = style(30);
    attributes.paragraphStyle.alignment = alignment;
    return ink(drawn(text("Centre", attributes), {400, std::nullopt}, 400, 50));
  };
  const Ink left = placed(TextAlignment::Left);
  const Ink centre = placed(TextAlignment::Center);
  const Ink right = placed(TextAlignment::Right);
  EXPECT_LE(left.left, 4);
  EXPECT_GE(right.right, 394);
  EXPECT_NEAR((centre.left + centre.right) / 2.0, 200, 3);
  EXPECT_EQ(placed(TextAlignment::Natural).left, left.left);

  // A clipped paragraph aligns in the container too, and paragraphs keep their own alignments.
  TextAttributes first = style(30);
  first.paragraphStyle.alignment = TextAlignment::Right;
  first.paragraphStyle.lineBreakMode = LineBreakMode::Clip;
  AttributedString two = text("Right\n", first);
  TextAttributes second = style(30);
  second.paragraphStyle.alignment = TextAlignment::Left;
  two.append(u"Left", second);
  const TextLayout layout(two, {400, std::nullopt});
  EXPECT_EQ(layout.lineCount(), 2u);
  const Ink top = ink(drawn(layout, 400, 100));
  EXPECT_GE(top.right, 394);
  EXPECT_LE(top.left, 4);
}

TEST(TextLayoutTest, LineHeightsSpacingAndFittedHeight) {
  const double natural = TextLayout::naturalSize(text("A")).height;
  TextAttributes tall = style();
  tall.paragraphStyle.minimumLineHeight = 80;
  EXPECT_DOUBLE_EQ(TextLayout::naturalSize(text("A\nB", tall)).height, 160);
  TextAttributes tight = style();
  tight.paragraphStyle.maximumLineHeight = 30;
  tight.paragraphStyle.lineSpacing = 5;
  EXPECT_DOUBLE_EQ(TextLayout::naturalSize(text("A\nB\nC", tight)).height, 3 * 30 + 2 * 5);
  TextAttributes spaced = style();
  spaced.paragraphStyle.paragraphSpacing = 12;
  EXPECT_DOUBLE_EQ(TextLayout::naturalSize(text("A\nB", spaced)).height, 2 * natural + 12);

  // Only the lines that fit whole count, and only they are drawn.
  const TextLayout three(text("A\nB\nC"), {100, natural * 2.5});
  EXPECT_EQ(three.lineCount(), 3u);
  EXPECT_DOUBLE_EQ(three.fittedHeight(), 2 * natural);
  EXPECT_DOUBLE_EQ(TextLayout(text("A\nB"), {100, 10}).fittedHeight(), 0);
  EXPECT_DOUBLE_EQ(TextLayout(text("A\nB"), {100, std::nullopt}).fittedHeight(), 2 * natural);
  EXPECT_LE(ink(drawn(three, 100, 200)).bottom, static_cast<int>(2 * natural));
}

TEST(TextLayoutTest, DrawsColoursStrokesAndShadows) {
  const Color blue{0, 0, 1, 1};
  TextAttributes filled = style(200, Color{1, 0, 0, 1});
  filled.font.bold = true;
  const Bitmap plain = drawn(text("I", filled), {}, 200, 260, 20, 0);
  const Ink stem = ink(plain, 250);
  ASSERT_GE(stem.left, 0);
  const int midX = (stem.left + stem.right) / 2;
  const int midY = (stem.top + stem.bottom) / 2;
  const std::uint8_t* solid = pixel(plain, midX, midY);
  EXPECT_EQ(solid[2], 255);  // BGRA: red
  EXPECT_EQ(solid[0], 0);
  EXPECT_EQ(solid[3], 255);

  // A positive stroke width draws the outline only; a negative one fills and strokes.
  TextAttributes outline = filled;
  outline.strokeWidth = 3;
  outline.strokeColor = blue;
  const Bitmap hollow = drawn(text("I", outline), {}, 200, 260, 20, 0);
  EXPECT_EQ(pixel(hollow, midX, midY)[3], 0);
  EXPECT_EQ(pixel(hollow, stem.left, midY)[0], 255);
  outline.strokeWidth = -3;
  const Bitmap both = drawn(text("I", outline), {}, 200, 260, 20, 0);
  EXPECT_EQ(pixel(both, midX, midY)[2], 255);
  EXPECT_EQ(pixel(both, stem.left, midY)[0], 255);
  // The stroke is centred on the outline: it reaches half its width beyond the filled glyph.
  EXPECT_NEAR(ink(both, 128).left, stem.left - 3, 1);

  // Half-transparent text is premultiplied.
  const Bitmap faint = drawn(text("I", style(200, Color{1, 0, 0, 0.5})), {}, 200, 260, 20, 0);
  const std::uint8_t* half = pixel(faint, midX, midY);
  EXPECT_NEAR(half[3], 128, 1);
  EXPECT_NEAR(half[2], 128, 1);

  // A shadow lies below and to the right (y up in the offset), blurred, in its own colour.
  TextAttributes shadowed = filled;
  shadowed.shadow = TextShadow{10, -12, 4, Color{0, 0, 1, 1}};
  const Bitmap withShadow = drawn(text("I", shadowed), {}, 200, 280, 20, 0);
  const std::uint8_t* belowRight = pixel(withShadow, stem.right + 5, stem.bottom + 6);
  EXPECT_EQ(belowRight[0], 255);
  EXPECT_EQ(belowRight[2], 0);
  EXPECT_EQ(pixel(withShadow, midX, midY)[2], 255);  // the text stays over its shadow
  EXPECT_EQ(pixel(withShadow, stem.left - 4, midY)[3], 0);
  // The blur ramps the edge of the shadow instead of cutting it.
  int ramp = 0;
  for (int x = stem.right + 1; x < stem.right + 25; ++x) {
    const int alpha = pixel(withShadow, x, midY)[3];
    ramp += alpha > 10 && alpha < 245 ? 1 : 0;
  }
  EXPECT_GE(ramp, 4);
}

TEST(TextLayoutTest, UnderlinesStrikethroughsAndByWordGaps) {
  TextAttributes underlined = style(40, Color{1, 1, 1, 1});
  underlined.underlineStyle = TextStyleMask::Single;
  underlined.underlineColor = Color{0, 1, 0, 1};
  const AttributedString words = text("ab    cd", underlined);
  const double baseline = 37;
  auto lineRow = [&](const Bitmap& pixels) {
    for (int y = static_cast<int>(baseline); y < pixels.height(); ++y) {
      if (pixel(pixels, 60, y)[1] == 255 && pixel(pixels, 60, y)[3] == 255) {
        return y;
      }
    }
    return -1;
  };
  const Bitmap solid = drawn(words, {}, 240, 50);
  const int row = lineRow(solid);
  ASSERT_GT(row, 0);
  EXPECT_EQ(pixel(solid, 60, row)[2], 0);  // in its own colour
  underlined.underlineStyle = TextStyleMask::Single | TextStyleMask::ByWord;
  const Bitmap byWord = drawn(text("ab    cd", underlined), {}, 240, 50);
  EXPECT_EQ(pixel(byWord, 60, row)[3], 0);
  EXPECT_EQ(pixel(byWord, 5, row)[1], 255);

  // Double lines are two lines; thick lines twice as thick; dashes leave gaps.
  // The coverage below the baseline, summed down the column, and how many separate lines it forms.
  auto lines = [&](int mask) {
    underlined.underlineStyle = mask;
    const Bitmap pixels = drawn(text("ab    cd", underlined), {}, 240, 60);
    std::pair<double, int> found{0, 0};
    bool inLine = false;
    for (int y = static_cast<int>(baseline); y < pixels.height(); ++y) {
      const int alpha = pixel(pixels, 60, y)[3];
      found.first += alpha / 255.0;
      found.second += alpha > 128 && !inLine ? 1 : 0;
      inLine = alpha > 128;
    }
    return found;
  };
  const auto single = lines(TextStyleMask::Single);
  EXPECT_EQ(single.second, 1);
  EXPECT_NEAR(lines(TextStyleMask::Thick).first, 2 * single.first, 0.1);
  EXPECT_EQ(lines(TextStyleMask::Thick).second, 1);
  EXPECT_NEAR(lines(TextStyleMask::Double).first, 2 * single.first, 0.1);
  EXPECT_EQ(lines(TextStyleMask::Double).second, 2);
  underlined.underlineStyle = TextStyleMask::Thick | TextStyleMask::PatternDash;
  const Bitmap dashed = drawn(text("ab    cd", underlined), {}, 240, 60);
  int gaps = 0;
  for (int x = 50; x < 100; ++x) {
    gaps += pixel(dashed, x, row)[3] == 0 ? 1 : 0;
  }
  EXPECT_GE(gaps, 5);

  TextAttributes struck = style(40, Color{1, 1, 1, 1});
  struck.strikethroughStyle = TextStyleMask::Single;
  struck.strikethroughColor = Color{0, 0, 1, 1};
  const Bitmap strikethrough = drawn(text("____", struck), {}, 200, 50);
  int blueRows = 0;
  for (int y = 5; y < 30; ++y) {
    blueRows += pixel(strikethrough, 30, y)[0] == 255 && pixel(strikethrough, 30, y)[1] == 0 ? 1 : 0;
  }
  EXPECT_GE(blueRows, 1);
}

TEST(TextLayoutTest, SuperscriptsObliquenessExpansionAndKerning) {
  AttributedString base = text("x");
  TextAttributes raised = style();
  raised.superscript = 1;
  base.append(u"x", raised);
  TextAttributes lowered = style();
  lowered.superscript = -1;
  base.append(u"x", lowered);
  const Bitmap pixels = drawn(base, {}, 200, 80);
  auto columnInk = [&](int from, int to) { return ink(pixels, 100, from, to); };
  const double xWidth = TextLayout::naturalSize(text("x")).width;
  const Ink normal = columnInk(0, static_cast<int>(xWidth));
  const Ink up = columnInk(static_cast<int>(xWidth) + 1, static_cast<int>(xWidth) + 16);
  EXPECT_LT(up.top, normal.top);
  EXPECT_LT(up.bottom - up.top, normal.bottom - normal.top);  // smaller as well as higher
  const Ink down = columnInk(static_cast<int>(xWidth) + 17, static_cast<int>(xWidth) + 40);
  EXPECT_GT(down.bottom, normal.bottom);

  TextAttributes slanted = style(100);
  slanted.obliqueness = 0.5;
  const Bitmap slant = drawn(text("l", slanted), {}, 200, 130, 20, 0);
  const auto firstInkInRow = [&](int y) { return ink(slant, 128, 0, -1, y, y + 1).left; };
  const Ink slantInk = ink(slant, 128);
  EXPECT_GT(firstInkInRow(slantInk.top + 2) - firstInkInRow(slantInk.bottom - 2), 20);

  TextAttributes wide = style();
  wide.expansion = std::log(2.0);
  EXPECT_NEAR(TextLayout::naturalSize(text("wide", wide)).width,
              2 * TextLayout::naturalSize(text("wide")).width, 1);
  // Kerning spaces the letters apart: three gaps in four letters. Kerned text fits in its natural width.
  TextAttributes kerned = style();
  kerned.kerning = 10;
  EXPECT_NEAR(TextLayout::naturalSize(text("abcd", kerned)).width,
              TextLayout::naturalSize(text("abcd")).width + 30, 1);
  for (double kerning : {0.1, 2.0, 25.0}) {
    kerned.kerning = kerning;
    const AttributedString words = text("Hello world", kerned);
    EXPECT_EQ(TextLayout(words, {TextLayout::naturalSize(words).width, std::nullopt}).lineCount(), 1u)
        << kerning;
  }
}

TEST(TextLayoutTest, MovedTextKeepsItsShape) {
  const AttributedString crawl = text("Crawl");
  const Bitmap at10 = drawn(crawl, {}, 200, 50, 10.375, 0);
  // A whole-pixel move gives the same pixels, shifted: a crawl in whole pixels does not shimmer.
  const Bitmap at13 = drawn(crawl, {}, 200, 50, 13.375, 0);
  for (int y = 0; y < 50; ++y) {
    ASSERT_TRUE(std::equal(pixel(at10, 0, y), pixel(at10, 190, y), pixel(at13, 3, y))) << y;
  }
  // Fractions of a pixel move the text steadily (each glyph lands on the nearest whole pixel), with the
  // same coverage.
  const Ink start = ink(at10);
  double previous = 0;
  for (double step : {0.25, 0.5, 0.75, 1.0}) {
    const Ink moved = ink(drawn(crawl, {}, 200, 50, 10.375 + step, 0));
    const double shift = moved.centreX - start.centreX;
    EXPECT_NEAR(shift, step, 0.5) << step;
    EXPECT_GE(shift, previous) << step;
    EXPECT_NEAR(moved.coverage / start.coverage, 1, 0.001);
    previous = shift;
  }
}

TEST(TextLayoutTest, FontsResolveByFamilyTraitsAndPostScriptNames) {
  TextAttributes regular = style();
  regular.font.family = "Helvetica";
  TextAttributes bold = regular;
  bold.font.bold = true;
  TextAttributes postScript = regular;
  postScript.font.family = "Helvetica-Bold";
  EXPECT_TRUE(FontCatalogue::shared().fontExists("Helvetica-Bold"));
  EXPECT_TRUE(FontCatalogue::shared().fontExists("LucidaGrande-BoldItalic"));
  EXPECT_FALSE(FontCatalogue::shared().fontExists("Helvetica-Nonsense"));
  EXPECT_FALSE(FontCatalogue::shared().fontExists("NoSuchFamily-Bold"));
  const double regularWidth = TextLayout::naturalSize(text("Broadcast", regular)).width;
  const double boldWidth = TextLayout::naturalSize(text("Broadcast", bold)).width;
  EXPECT_GT(boldWidth, regularWidth + 5);
  EXPECT_DOUBLE_EQ(TextLayout::naturalSize(text("Broadcast", postScript)).width, boldWidth);
  // A name that no font carries still draws, in the fallback family; nonsense sizes fall back too.
  TextAttributes unknown = style();
  unknown.font.family = "No Such Font At All";
  EXPECT_GT(ink(drawn(text("Text", unknown), {}, 200, 60)).coverage, 0);
  unknown.font.pointSize = std::nan("");
  EXPECT_GT(TextLayout::naturalSize(text("Text", unknown)).width, 0);
}

TEST(TextLayoutTest, TabStopsAlignText) {
  TextAttributes tabbed = style(20);
  tabbed.paragraphStyle.tabStops = {TabStop{100, TextAlignment::Left}, TabStop{300, TextAlignment::Right}};
  const Bitmap pixels = drawn(text("a\tb\tright", tabbed), {400, std::nullopt}, 400, 30);
  EXPECT_NEAR(ink(pixels, 100, 200, 400).right, 300, 3);
  const Ink b = ink(drawn(text("a\tb", tabbed), {400, std::nullopt}, 400, 30), 100);
  EXPECT_GE(b.right, 100);
  EXPECT_LE(b.right, 115);

  // A decimal stop lines numbers up on their decimal point: "12.5" and "1.555" end apart.
  TextAttributes decimal = style(20);
  decimal.paragraphStyle.tabStops = {TabStop{200, TextAlignment::Right, true}};
  const Ink shortFraction = ink(drawn(text("a\t12.5", decimal), {400, std::nullopt}, 400, 30), 100);
  const Ink longFraction = ink(drawn(text("a\t1.555", decimal), {400, std::nullopt}, 400, 30), 100);
  EXPECT_GT(longFraction.right - shortFraction.right, 15);
}

TEST(TextLayoutTest, DrawsIntoBitmapsWiderThanOneSurface) {
  TextAttributes shadowed = style();
  shadowed.shadow = TextShadow{3, -3, 2, Color{0, 0, 0, 1}};
  const Ink found = ink(drawn(text("far right", shadowed), {}, 40000, 50, 39000));
  EXPECT_GE(found.left, 39000);
  EXPECT_LT(found.right, 40000);
  // Straddling the seam between two surfaces loses nothing.
  const double seam = ink(drawn(text("seam"), {}, 33000, 50, 32767 - 40)).coverage;
  const double reference = ink(drawn(text("seam"), {}, 200, 50, 10)).coverage;
  EXPECT_NEAR(seam, reference, reference * 0.01);
}

TEST(TextLayoutTest, LongTextsLayOutWhole) {
  // Many paragraphs, and one paragraph far wider than Pango's units reach, wrapped in a column.
  std::string paragraphs;
  for (int i = 0; i < 3000; ++i) {
    paragraphs += "Line " + std::to_string(i) + "\n";
  }
  const TextLayout lines(text(paragraphs.c_str(), style(10)), {400, std::nullopt});
  EXPECT_EQ(lines.lineCount(), 3001u);
  std::string words;
  for (int i = 0; i < 12000; ++i) {
    words += "Breaking news ";
  }
  const TextLayout column(text(words.c_str(), style(40)), {1920, std::nullopt});
  EXPECT_GT(column.lineCount(), 300u);
  EXPECT_GT(column.usedRect().width, 1800);
  EXPECT_LE(column.usedRect().width, 1920);
}

TEST(TextLayoutTest, CountsWords) {
  EXPECT_EQ(TextLayout::wordCount(u"Hello, world! It's 2026 \u2014 on air."), 6u);
  EXPECT_EQ(TextLayout::wordCount(u""), 0u);
  EXPECT_EQ(TextLayout::wordCount(u"  ...  "), 0u);
}

TEST(GaussianBlurTest, SpreadsCoverageAndKeepsItsSum) {
  std::vector<std::uint8_t> plane(41 * 41, 0);
  plane[20 * 41 + 20] = 255;
  plane[20 * 41 + 21] = 255;
  plane[21 * 41 + 20] = 255;
  plane[21 * 41 + 21] = 255;
  GaussianBlur::blurAlpha(plane.data(), 41, 41, 41, 2);
  EXPECT_NEAR(std::accumulate(plane.begin(), plane.end(), 0), 4 * 255, 4 * 255 * 0.1);
  EXPECT_GT(plane[20 * 41 + 20], plane[20 * 41 + 24]);
  EXPECT_GT(plane[20 * 41 + 24], 0);
  EXPECT_EQ(plane[0], 0);
  EXPECT_EQ(plane[20 * 41 + 20], plane[21 * 41 + 21]);  // symmetric
}

}  // namespace
}  // namespace qva
