#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

#include "foundation/rtf/RTFStringExtensions.h"
#include "foundation/text/TextLayout.h"
#include "patches/richtext/Image_With_RTF_StringPlugIn.h"
#include "patches/richtext/InkBounds.h"
#include "patches/richtext/RTF_StylePlugIn.h"
#include "support/PatchDriver.h"
#include "support/PixelProbe.h"

namespace qva {
namespace {

// The project's font configuration, also when the executable runs outside CTest.
const bool kProjectFonts = setenv("FONTCONFIG_FILE", QVA_SOURCE_DIR "/data/fonts/fonts.conf", 0) == 0;

using X = RTFStringExtensions;
using Plugin = Image_With_RTF_StringPlugIn;

const char* kSentence = "The quick brown fox jumps over the lazy dog while the band plays on and on.";

// A style string with a plain look: no shadow, the given font and size.
std::string plainStyle(const char* font = "Helvetica", double size = 24) {
  RTF_StylePlugIn::Settings settings;
  settings.fontName = font;
  settings.fontSize = size;
  settings.useShadow = false;
  return RTF_StylePlugIn::styleString(settings).value();
}

AttributedString styled(const std::string& text, const std::string& style) {
  return AttributedString::fromUtf8(text, X::describedRTFAttributes(style).value());
}

class ImageWithRTFStringTest : public testing::Test {
 protected:
  ImageWithRTFStringTest() : driver_(driverFor<Plugin>()) {
    driver_.patch().setHostLog([this](const std::string& line) { hostLog_.push_back(line); });
  }

  Plugin& plugin() { return static_cast<Plugin&>(driver_.patch()); }

  // The text in the style at a size of width × height, where 0 fits that side to the text.
  void show(const std::string& text, std::uint32_t width, std::uint32_t height,
            const std::string& style = plainStyle()) {
    driver_.set("inputRTFStyle", style);
    driver_.set("inputString", text);
    driver_.set("inputWidth", width);
    driver_.set("inputHeight", height);
  }

  // Runs a frame and answers the image (none when there is none).
  ImageRef render() {
    EXPECT_TRUE(driver_.frame(time_));
    time_ += 1;
    return driver_.output("outputImage").imageValue();
  }

  PixelBufferView pixels() {
    image_ = render();
    EXPECT_TRUE(image_);
    return image_ ? image_->pixelBuffer().value() : PixelBufferView{};
  }

  InkBounds ink() {
    auto bounds = InkBounds::of(pixels());
    EXPECT_TRUE(bounds) << "nothing drawn";
    return bounds.value_or(InkBounds{});
  }

  std::uint32_t index(const char* key) const { return driver_.output(key).indexValue(); }
  // The line count of a frame drawn in the line break mode.
  std::uint32_t lineCountIn(std::uint32_t mode) {
    driver_.set("inputLineBreakMode", mode);
    render();
    return index("outputLineCount");
  }

  PatchDriver driver_;
  ImageRef image_;
  std::vector<std::string> hostLog_;
  double time_ = 0;
};

TEST_F(ImageWithRTFStringTest, TheClassAndItsPorts) {
  const PatchClass& c = Plugin::patchClass();
  EXPECT_EQ(c.name, "Image With RTF String");
  EXPECT_EQ(c.executionMode, ExecutionMode::Processor);
  EXPECT_EQ(c.timeMode, TimeMode::None);
  EXPECT_EQ(c.plugInKeys, (std::vector<std::string>{"savedVersion", "showStatistics"}));
  EXPECT_EQ(portKeys(plugin().inputPorts()),
            (std::vector<std::string>{"inputString", "inputRTFStyle", "inputIgnoreRTFStyle", "inputWidth",
                                      "inputHeight", "inputHorizontalAlignment", "inputVerticalAlignment",
                                      "inputLineBreakMode"}));
  const PortAttributes* ignore = c.attributesForPropertyPortWithKey("inputIgnoreRTFStyle");
  EXPECT_EQ(ignore->maximum, 0);
  EXPECT_TRUE(ignore->defaultValue.isNone());
  EXPECT_FALSE(plugin().findInputPort("inputIgnoreRTFStyle")->value.booleanValue());
  const PortAttributes* lineBreak = c.attributesForPropertyPortWithKey("inputLineBreakMode");
  EXPECT_EQ(lineBreak->menuItems.size(), 8u);
  EXPECT_EQ(lineBreak->maximum, 5);
  EXPECT_EQ(lineBreak->defaultValue.indexValue(), 2u);

  // The separators of the line break menu take no index.
  const std::optional<LineBreakMode> modes[] = {LineBreakMode::Clip,
                                                LineBreakMode::CharWrap,
                                                LineBreakMode::WordWrap,
                                                LineBreakMode::TruncateHead,
                                                LineBreakMode::TruncateMiddle,
                                                LineBreakMode::TruncateTail,
                                                std::nullopt};
  for (std::uint32_t index = 0; index < std::size(modes); ++index) {
    EXPECT_EQ(Plugin::lineBreakModeForIndex(index), modes[index]) << index;
  }
  EXPECT_EQ(Plugin::alignmentForIndex(1), TextAlignment::Center);
  EXPECT_EQ(Plugin::alignmentForIndex(2), TextAlignment::Right);
  EXPECT_EQ(Plugin::alignmentForIndex(4), TextAlignment::Natural);
  EXPECT_EQ(Plugin::alignmentForIndex(5), std::nullopt);
}

TEST_F(ImageWithRTFStringTest, TheDefaultStyleIsLucidaGrandeRedWithABlackShadow) {
  TextAttributes expected;
  expected.font = FontDescriptor{"LucidaGrande", 40};
  expected.foregroundColor = Color{1, 0, 0, 1};
  expected.shadow = TextShadow{2, -2, 1, Color{0, 0, 0, 1}};
  EXPECT_EQ(X::describedRTFAttributes(Plugin::defaultStyleString()), expected);
  EXPECT_EQ(plugin().findInputPort("inputRTFStyle")->value.stringValue(), Plugin::defaultStyleString());

  // Red text over a black shadow, centred in an image that fits it.
  const std::vector<std::uint8_t> bgra = packedBytes(pixels());
  bool red = false;
  bool black = false;
  for (const std::uint8_t* p = bgra.data(); p < bgra.data() + bgra.size(); p += 4) {
    red = red || (p[3] == 255 && p[2] > 240 && p[1] < 10 && p[0] < 10);
    black = black || (p[3] > 200 && p[2] < 20);
  }
  EXPECT_TRUE(red);
  EXPECT_TRUE(black);
}

TEST_F(ImageWithRTFStringTest, BothSidesZeroFitTheNaturalSizeWithMarginsOfFourAndTwo) {
  const std::string style = plainStyle("Times", 31.3);
  for (const char* text : {"Hello World!", "two\nlines of text", "", "   "}) {
    driver_.set("inputString", text);
    driver_.set("inputRTFStyle", style);
    const ImageRef image = render();
    ASSERT_TRUE(image) << text;
    const TextSize natural = TextLayout::naturalSize(styled(text, style));
    EXPECT_EQ(image->width(), static_cast<int>(static_cast<float>(natural.width) + 4.0f)) << text;
    EXPECT_EQ(image->height(), static_cast<int>(static_cast<float>(natural.height) + 2.0f)) << text;
  }
  // An empty text makes a transparent 4 × 2 image.
  driver_.set("inputString", "");
  const PixelBufferView empty = pixels();
  EXPECT_EQ(empty.width, 4);
  EXPECT_EQ(empty.height, 2);
  EXPECT_FALSE(InkBounds::of(empty));
}

TEST_F(ImageWithRTFStringTest, OneSideGivenFitsTheOtherWithAMarginOfFive) {
  const std::string style = plainStyle();
  show(kSentence, 300, 0, style);
  ImageRef image = render();
  ASSERT_TRUE(image);
  const TextLayout wrapped(styled(kSentence, style), {300.0, std::nullopt});
  ASSERT_GT(wrapped.lineCount(), 2u);
  EXPECT_EQ(image->width(), 300);
  EXPECT_EQ(image->height(), static_cast<int>(wrapped.usedRect().height + 5));

  driver_.set("inputWidth", 0u);
  driver_.set("inputHeight", 100u);
  image = render();
  ASSERT_TRUE(image);
  const TextSize natural = TextLayout::naturalSize(styled(kSentence, style));
  EXPECT_EQ(image->width(), static_cast<int>(natural.width + 5));
  EXPECT_EQ(image->height(), 100);
}

TEST_F(ImageWithRTFStringTest, ImagesAreDrawnStraightIntoPaddedPageAlignedRows) {
  driver_.set("inputRTFStyle", plainStyle());
  for (std::uint32_t width : {1u, 4u, 100u, 101u, 333u}) {
    driver_.set("inputWidth", width);
    driver_.set("inputHeight", 40u);
    const PixelBufferView image = pixels();
    EXPECT_EQ(image.width, static_cast<int>(width));
    EXPECT_EQ(image.rowBytes, (width / 4) * 16 + 16) << width;
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(image.bytes) % 4096, 0u);
  }
}

TEST_F(ImageWithRTFStringTest, StatisticsPortsComeAndGoWithTheSetting) {
  const auto outputKeys = [&] { return portKeys(plugin().outputPorts()); };
  const std::vector<std::string> plain{"outputImage", "outputWidth", "outputHeight"};
  EXPECT_EQ(outputKeys(), plain);
  plugin().setShowStatistics(true);
  std::vector<std::string> withStatistics = plain;
  withStatistics.insert(withStatistics.end(), {"outputCharacterCount", "outputWordCount", "outputLineCount"});
  EXPECT_EQ(outputKeys(), withStatistics);
  EXPECT_EQ(plugin().findOutputPort("outputWordCount")->description.attributes.name, "Word Count");
  EXPECT_EQ(plugin().findOutputPort("outputWordCount")->description.type, PortType::Index);
  plugin().setShowStatistics(true);
  EXPECT_EQ(outputKeys(), withStatistics);
  EXPECT_EQ(plugin().serializedValueForKey("showStatistics"), true);
  plugin().setShowStatistics(false);
  EXPECT_EQ(outputKeys(), plain);
  EXPECT_EQ(plugin().serializedValueForKey("showStatistics"), false);

  // A saved patch with the setting on gets its ports back when it loads.
  auto loaded = driverFor<Plugin>();
  loaded.setSetting("savedVersion", 0);
  loaded.setSetting("showStatistics", true);
  EXPECT_NE(loaded.patch().findOutputPort("outputLineCount"), nullptr);
  EXPECT_TRUE(static_cast<Plugin&>(loaded.patch()).showStatistics());
}

TEST_F(ImageWithRTFStringTest, StatisticsCountUnitsWordsAndLinesByTheLineBreakMode) {
  plugin().setShowStatistics(true);
  driver_.set("inputRTFStyle", plainStyle());
  // Emoji count two UTF-16 units; words are ICU's, punctuation and spaces aside.
  driver_.set("inputString", "Hello, brave new world \xF0\x9F\x98\x80 42!\nsecond line\nthird");
  render();
  EXPECT_EQ(index("outputCharacterCount"), 47u);
  EXPECT_EQ(index("outputWordCount"), 8u);
  EXPECT_EQ(index("outputLineCount"), 3u);

  driver_.set("inputString", kSentence);
  driver_.set("inputWidth", 200u);
  const TextLayout layout(styled(kSentence, plainStyle()), {200.0, std::nullopt});
  ASSERT_GT(layout.lineCount(), 3u);
  for (std::uint32_t mode : {1u, 2u}) {
    EXPECT_EQ(lineCountIn(mode), layout.lineCount()) << mode;
  }
  for (std::uint32_t mode : {0u, 3u, 4u, 5u}) {
    EXPECT_EQ(lineCountIn(mode), 1u) << mode;
  }
  EXPECT_EQ(lineCountIn(6u), 0u);

  // An empty text has no lines when wrapped, one when clipped.
  driver_.set("inputString", "");
  EXPECT_EQ(lineCountIn(2u), 0u);
  EXPECT_EQ(index("outputCharacterCount"), 0u);
  EXPECT_EQ(lineCountIn(0u), 1u);
}

TEST_F(ImageWithRTFStringTest, StatisticsOfAFixedSizeAndOfRtfInputCountTheTextDrawn) {
  plugin().setShowStatistics(true);
  show(kSentence, 250, 30);
  const ImageRef image = render();
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width(), 250);
  EXPECT_EQ(image->height(), 30);
  EXPECT_EQ(index("outputLineCount"), TextLayout(styled(kSentence, plainStyle()), {250.0, 30.0}).lineCount());
  EXPECT_GT(index("outputLineCount"), 1u);

  // With its own formatting the text counted is the document's, not its RTF source.
  driver_.set("inputIgnoreRTFStyle", true);
  driver_.set("inputString", "{\\rtf1{\\fonttbl\\f0 Times;}\\f0\\b bold\\b0  words}");
  render();
  EXPECT_EQ(index("outputCharacterCount"), 10u);
  EXPECT_EQ(index("outputWordCount"), 2u);
  driver_.set("inputString", "not rtf");
  render();
  EXPECT_EQ(index("outputCharacterCount"), 0u);
}

TEST_F(ImageWithRTFStringTest, HorizontalAlignmentIndexOneCentresAndTwoGoesRight) {
  show("Hi", 400, 60);
  driver_.set("inputHorizontalAlignment", 0u);
  EXPECT_LT(ink().left, 10);
  driver_.set("inputHorizontalAlignment", 1u);
  EXPECT_NEAR(ink().centerX(), 200, 6);
  driver_.set("inputHorizontalAlignment", 2u);
  EXPECT_GT(ink().right, 390);

  // An index beyond the menu keeps the text's own alignment.
  driver_.set("inputIgnoreRTFStyle", true);
  driver_.set("inputString", "{\\rtf1{\\fonttbl\\f0 Helvetica;}\\pard\\qr\\f0\\fs48 Hi}");
  driver_.set("inputHorizontalAlignment", 7u);
  EXPECT_GT(ink().right, 390);
}

TEST_F(ImageWithRTFStringTest, TheFirstParagraphsStyleWithThePortsModeCoversTheWholeText) {
  // The second paragraph is right-aligned and indented on its own; after the patch it follows the first.
  driver_.set("inputIgnoreRTFStyle", true);
  driver_.set("inputString",
              "{\\rtf1{\\fonttbl\\f0 Helvetica;}\\f0\\fs48\\pard\\ql first\\par\\pard\\qr\\li2000 second}");
  driver_.set("inputWidth", 500u);
  driver_.set("inputHeight", 200u);
  driver_.set("inputVerticalAlignment", 0u);
  driver_.set("inputHorizontalAlignment", 4u);
  const InkBounds natural = ink();
  EXPECT_LT(natural.right, 250);
  driver_.set("inputHorizontalAlignment", 2u);
  const InkBounds right = ink();
  EXPECT_GT(right.right, 490);
  EXPECT_GT(right.left, 250);

  // The line break mode comes from the port: clipped, a long text stays on one line.
  driver_.set("inputIgnoreRTFStyle", false);
  driver_.set("inputRTFStyle", plainStyle());
  driver_.set("inputString", kSentence);
  driver_.set("inputHorizontalAlignment", 0u);
  driver_.set("inputLineBreakMode", 0u);
  const InkBounds clipped = ink();
  EXPECT_LT(clipped.height(), 35);
  EXPECT_GT(clipped.right, 495);
  driver_.set("inputLineBreakMode", 5u);
  const InkBounds truncated = ink();
  EXPECT_LT(truncated.height(), 35);
  driver_.set("inputLineBreakMode", 2u);
  EXPECT_GT(ink().height(), 45);
}

TEST_F(ImageWithRTFStringTest, VerticalAlignmentPlacesTheFittedBlock) {
  const std::string style = plainStyle("Helvetica", 40);
  show("Ag\nAg", 200, 300, style);
  const double fitted = TextLayout(styled("Ag\nAg", style), {200.0, 300.0}).fittedHeight();
  ASSERT_GT(fitted, 80);
  driver_.set("inputVerticalAlignment", 0u);
  const InkBounds top = ink();
  EXPECT_LT(top.top, 15);
  driver_.set("inputVerticalAlignment", 1u);
  const InkBounds centre = ink();
  EXPECT_NEAR(centre.top - top.top, (300 - fitted) / 2, 1);
  driver_.set("inputVerticalAlignment", 2u);
  const InkBounds bottom = ink();
  EXPECT_NEAR(bottom.top - top.top, 300 - fitted, 1);
  EXPECT_GT(bottom.bottom, 285);
  driver_.set("inputVerticalAlignment", 3u);
  EXPECT_EQ(ink().top, top.top);
}

TEST_F(ImageWithRTFStringTest, DisplaySizeComesFromViewportAndBounds) {
  driver_.set("inputWidth", 200u);
  driver_.set("inputHeight", 100u);
  driver_.context().setViewport(PixelSize{1920, 1080});
  driver_.context().setBounds(Rect{-1, -0.5625, 2, 1.125});
  render();
  EXPECT_EQ(driver_.number("outputWidth"), static_cast<double>(200.0f / 1920.0f * 2.0f));
  EXPECT_EQ(driver_.number("outputHeight"), static_cast<double>(100.0f / 1080.0f * 1.125f));
  driver_.context().setViewport(PixelSize{0, 0});
  driver_.set("inputHeight", 101u);
  render();
  EXPECT_EQ(driver_.number("outputWidth"), 0);
  EXPECT_EQ(driver_.number("outputHeight"), 0);
}

TEST_F(ImageWithRTFStringTest, InvalidStylesAndUnknownFontsStillDrawText) {
  // An invalid style draws in the reader's defaults: black Helvetica 12.
  driver_.set("inputRTFStyle", "{\\rtf1 unbalanced");
  driver_.set("inputString", "Text");
  const PixelBufferView image = pixels();
  const InkBounds bounds = InkBounds::of(image).value();
  EXPECT_LT(bounds.height(), 16);
  const std::uint8_t* p = image.bytes + (bounds.top + bounds.height() / 2) * image.rowBytes;
  for (int x = 0; x < image.width; ++x, p += 4) {
    EXPECT_LE(p[2], 1) << "not black at " << x;
  }
  driver_.set("inputIgnoreRTFStyle", true);
  driver_.set("inputString", "{\\rtf1{\\fonttbl\\f0 NoSuchFontAnywhere;}\\f0\\fs120 Fallback}");
  EXPECT_GT(ink().height(), 30);
  driver_.set("inputString", "{\\rtf1 never closed");
  const PixelBufferView invalid = pixels();
  EXPECT_EQ(invalid.width, 4);
  EXPECT_FALSE(InkBounds::of(invalid));
}

TEST_F(ImageWithRTFStringTest, SizesThatCannotBeHadGiveNoImageAndALogLine) {
  driver_.set("inputRTFStyle", plainStyle());
  // Wide and short is fine.
  driver_.set("inputWidth", 100000u);
  const ImageRef wide = render();
  ASSERT_TRUE(wide);
  EXPECT_EQ(wide->width(), 100000);
  EXPECT_LT(wide->height(), 40);

  for (auto [width, height] :
       {std::pair{100000u, 100000u}, std::pair{4294967295u, 1u}, std::pair{1u, 4294967295u}}) {
    driver_.set("inputWidth", width);
    driver_.set("inputHeight", height);
    EXPECT_FALSE(render()) << width << "x" << height;
    ASSERT_FALSE(driver_.processLog().empty());
    EXPECT_NE(driver_.processLog().back().find(
                  "[Image_With_RTF_StringPlugIn execute:atTime:withArguments:] no image"),
              std::string::npos)
        << driver_.processLog().back();
  }
}

TEST_F(ImageWithRTFStringTest, AMegabyteStringIsDrawnOrRefusedWithinBounds) {
  std::string text;
  while (text.size() < (1u << 20)) {
    text += "Breaking news from everywhere, all day long. ";
  }
  plugin().setShowStatistics(true);
  show(text, 1920, 200);
  const ImageRef fixed = render();
  ASSERT_TRUE(fixed);
  EXPECT_EQ(fixed->width(), 1920);
  EXPECT_EQ(fixed->height(), 200);
  EXPECT_EQ(index("outputCharacterCount"), text.size());

  // Fitted to the text at a large size, the image is made within the bitmap limit or refused with a log line.
  plugin().setShowStatistics(false);
  show(text, 0, 0, plainStyle("Helvetica", 4000));
  if (const ImageRef image = render()) {
    const PixelBufferView pixels = image->pixelBuffer().value();
    EXPECT_LE(pixels.rowBytes * static_cast<std::size_t>(pixels.height), Bitmap::maximumBytes);
  } else {
    EXPECT_NE(driver_.processLog().back().find("no image"), std::string::npos);
  }
}

}  // namespace
}  // namespace qva
