#include "patches/richtext/Image_With_RTF_StringPlugIn.h"

#include <array>
#include <limits>

#include "foundation/rtf/RTFStringExtensions.h"
#include "patches/richtext/RichTextBitmap.h"

namespace qva {

namespace {

constexpr const char* kShowStatisticsKey = "showStatistics";
constexpr const char* kOrigin = "[Image_With_RTF_StringPlugIn execute:atTime:withArguments:]";

struct StatisticsPort {
  const char* key;
  const char* title;
};
constexpr std::array<StatisticsPort, 3> kStatisticsPorts{{
    {"outputCharacterCount", "Character Count"},
    {"outputWordCount", "Word Count"},
    {"outputLineCount", "Line Count"},
}};

// A size in pixels from a measured length, cut towards zero and kept within an index port's range.
std::uint32_t truncatedSize(double length) {
  if (!(length > 0)) {
    return 0;
  }
  constexpr double kLargest = std::numeric_limits<std::uint32_t>::max();
  return length >= kLargest ? std::numeric_limits<std::uint32_t>::max() : static_cast<std::uint32_t>(length);
}

}  // namespace

const PatchClass& Image_With_RTF_StringPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "Image_With_RTF_StringPlugIn";
    c.name = "Image With RTF String";
    c.description =
        "Produces an Image from the string specified in \"String\" using the format specified in \"RTF "
        "Style\". Use the \"RTF Style\" patch to feed this input.\nIf \"String\" already contains RTF "
        "formatting, set \"Ignore RTF Style\" to true to use its formatting. You can use the \"RTF String "
        "Checker\" patch to check if the string entered contains valid RTF formatting.\nEnter 0 for \"Image "
        "Width\" or \"Image Height\" to let the patch calculate the image size to fit the entire string.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = {
        PortDescription::port("inputString", PortType::String, "String", Value("Hello World!")),
        PortDescription::port("inputRTFStyle", PortType::String, "RTF Style", Value(defaultStyleString())),
        // A maximum of false and no default, as the class has always declared it.
        PortDescription::port("inputIgnoreRTFStyle", PortType::Boolean, "Ignore RTF Style").withMaximum(0),
        PortDescription::port("inputWidth", PortType::Index, "Image Width", Value(0u)),
        PortDescription::port("inputHeight", PortType::Index, "Image Height", Value(0u)),
        PortDescription::port("inputHorizontalAlignment", PortType::Index, "Horizontal Alignment", Value(1u))
            .withMaximum(4)
            .withMenu({"Left", "Center", "Right", "Justified", "Natural"}),
        PortDescription::port("inputVerticalAlignment", PortType::Index, "Vertical Alignment", Value(1u))
            .withMaximum(2)
            .withMenu({"Top", "Center", "Bottom"}),
        // The "-" entries separate the menu's groups; the six real entries take the indices 0 to 5.
        PortDescription::port("inputLineBreakMode", PortType::Index, "Line Break Mode", Value(2u))
            .withMaximum(5)
            .withMenu({"Clip", "-", "Character Wrap", "Word Wrap", "-", "Truncate Head", "Truncate Middle",
                       "Truncate Tail"}),
    };
    c.outputs = {
        PortDescription::port("outputImage", PortType::Image, "Image"),
        PortDescription::port("outputWidth", PortType::Number, "Display Width"),
        PortDescription::port("outputHeight", PortType::Number, "Display Height"),
    };
    c.sortedPropertyPortKeys = std::vector<std::string>{"inputString",
                                                        "inputRTFStyle",
                                                        "inputIgnoreRTFStyle",
                                                        "inputWidth",
                                                        "inputHeight",
                                                        "inputHorizontalAlignment",
                                                        "inputVerticalAlignment",
                                                        "inputLineBreakMode",
                                                        "outputImage",
                                                        "outputWidth",
                                                        "outputHeight",
                                                        "outputCharacterCount",
                                                        "outputWordCount",
                                                        "outputLineCount"};
    c.plugInKeys = QVAPlugIn::plugInKeys({kShowStatisticsKey});
    c.create = [] { return std::make_unique<Image_With_RTF_StringPlugIn>(); };
    return c;
  }();
  return patchClass;
}

const std::string& Image_With_RTF_StringPlugIn::defaultStyleString() {
  static const std::string style = [] {
    TextAttributes attributes;
    attributes.font = FontDescriptor{"LucidaGrande", 40};
    attributes.foregroundColor = Color{1, 0, 0, 1};
    attributes.shadow = TextShadow{2, -2, 1, Color{0, 0, 0, 1}};
    return RTFStringExtensions::RTFAsPlainString(AttributedString(u"Format String", attributes)).value_or("");
  }();
  return style;
}

std::optional<TextAlignment> Image_With_RTF_StringPlugIn::alignmentForIndex(std::uint32_t index) {
  static constexpr std::array<TextAlignment, 5> kAlignments{TextAlignment::Left, TextAlignment::Center,
                                                            TextAlignment::Right, TextAlignment::Justified,
                                                            TextAlignment::Natural};
  return index < kAlignments.size() ? std::optional(kAlignments[index]) : std::nullopt;
}

std::optional<LineBreakMode> Image_With_RTF_StringPlugIn::lineBreakModeForIndex(std::uint32_t index) {
  static constexpr std::array<LineBreakMode, 6> kModes{
      LineBreakMode::Clip,         LineBreakMode::CharWrap,       LineBreakMode::WordWrap,
      LineBreakMode::TruncateHead, LineBreakMode::TruncateMiddle, LineBreakMode::TruncateTail};
  return index < kModes.size() ? std::optional(kModes[index]) : std::nullopt;
}

Image_With_RTF_StringPlugIn::Image_With_RTF_StringPlugIn() : QVAPlugIn(patchClass()) {}

void Image_With_RTF_StringPlugIn::setShowStatistics(bool showStatistics) {
  if (showStatistics == showStatistics_) {
    return;
  }
  showStatistics_ = showStatistics;
  for (const StatisticsPort& port : kStatisticsPorts) {
    if (showStatistics) {
      PortAttributes attributes;
      attributes.name = port.title;
      addOutputPort(PortType::Index, port.key, attributes);
    } else {
      removeOutputPort(port.key);
    }
  }
}

PropertyList Image_With_RTF_StringPlugIn::serializedValueForKey(const std::string& key) const {
  if (key == kShowStatisticsKey) {
    return showStatistics_;
  }
  return QVAPlugIn::serializedValueForKey(key);
}

void Image_With_RTF_StringPlugIn::setSerializedValueForKey(const PropertyList& value,
                                                           const std::string& key) {
  if (key == kShowStatisticsKey) {
    setShowStatistics(propertyListInteger(value) != 0);
  } else {
    QVAPlugIn::setSerializedValueForKey(value, key);
  }
}

AttributedString Image_With_RTF_StringPlugIn::builtText() const {
  if (inputBoolean("inputIgnoreRTFStyle")) {
    return RTFStringExtensions::RTFString(inputString("inputString")).value_or(AttributedString());
  }
  const TextAttributes style =
      RTFStringExtensions::describedRTFAttributes(inputString("inputRTFStyle")).value_or(TextAttributes{});
  return AttributedString::fromUtf8(inputString("inputString"), style);
}

Image_With_RTF_StringPlugIn::ImageSize Image_With_RTF_StringPlugIn::measure(const AttributedString& text) {
  const std::uint32_t widthPort = inputIndex("inputWidth");
  const std::uint32_t heightPort = inputIndex("inputHeight");
  ImageSize size{widthPort, heightPort};
  if (widthPort == 0 && heightPort == 0) {
    // The margins of the natural size, added in single precision.
    const TextSize natural = TextLayout::naturalSize(text);
    size.width = truncatedSize(static_cast<float>(natural.width) + 4.0f);
    size.height = truncatedSize(static_cast<float>(natural.height) + 2.0f);
  } else if (widthPort == 0 || heightPort == 0) {
    size = ImageSize{0, 0};
  }
  const bool sizeKnown = size.width != 0 && size.height != 0;
  if (sizeKnown && !showStatistics_) {
    return size;
  }
  TextLayout::Container container;
  if (sizeKnown) {
    container = {static_cast<double>(size.width), static_cast<double>(size.height)};
  } else if (widthPort != 0) {
    container.width = static_cast<double>(widthPort);
  } else {
    container.height = static_cast<double>(heightPort);
  }
  const TextLayout layout(text, container);
  if (!sizeKnown) {
    // The other side fits the laid-out text with a margin of 5, unlike the natural size's 4 and 2.
    const TextRect used = layout.usedRect();
    size = widthPort != 0 ? ImageSize{widthPort, truncatedSize(used.height + 5)}
                          : ImageSize{truncatedSize(used.width + 5), heightPort};
  }
  if (showStatistics_) {
    publishStatistics(text, layout);
  }
  return size;
}

void Image_With_RTF_StringPlugIn::publishStatistics(const AttributedString& text, const TextLayout& layout) {
  std::uint32_t lines = 0;
  switch (inputIndex("inputLineBreakMode")) {
    case 1:  // Character Wrap
    case 2:  // Word Wrap
      lines = static_cast<std::uint32_t>(layout.lineCount());
      break;
    case 0:  // Clip
    case 3:  // Truncate Head, Middle and Tail
    case 4:
    case 5:
      lines = 1;
      break;
    default:
      break;
  }
  setValueForOutputKey(Value(static_cast<std::uint32_t>(text.length())), "outputCharacterCount");
  setValueForOutputKey(Value(static_cast<std::uint32_t>(TextLayout::wordCount(text.text()))),
                       "outputWordCount");
  setValueForOutputKey(Value(lines), "outputLineCount");
}

AttributedString Image_With_RTF_StringPlugIn::withPortParagraphStyle(const AttributedString& text) const {
  ParagraphStyle style = text.empty() ? ParagraphStyle{} : text.attributesAt(0).paragraphStyle;
  if (auto mode = lineBreakModeForIndex(inputIndex("inputLineBreakMode"))) {
    style.lineBreakMode = *mode;
  }
  if (auto alignment = alignmentForIndex(inputIndex("inputHorizontalAlignment"))) {
    style.alignment = *alignment;
  }
  AttributedString styled;
  for (const AttributedString::Run& run : text.runs()) {
    TextAttributes attributes = run.attributes;
    attributes.paragraphStyle = style;
    styled.append(std::u16string_view(text.text()).substr(run.location, run.length), attributes);
  }
  return styled;
}

void Image_With_RTF_StringPlugIn::publishDisplaySize(const ExecutionContext& context, ImageSize size) {
  const PixelSize& viewport = context.viewport();
  float width = 0;
  float height = 0;
  if (viewport.width != 0 && viewport.height != 0) {
    // The size at which the image shows pixel for pixel, in composition units.
    width = static_cast<float>(size.width) / static_cast<float>(viewport.width) *
            static_cast<float>(context.bounds().width);
    height = static_cast<float>(size.height) / static_cast<float>(viewport.height) *
             static_cast<float>(context.bounds().height);
  }
  setValueForOutputKey(Value(static_cast<double>(width)), "outputWidth");
  setValueForOutputKey(Value(static_cast<double>(height)), "outputHeight");
}

bool Image_With_RTF_StringPlugIn::execute(ExecutionContext& context, double, const Arguments&) {
  const AttributedString built = builtText();
  const ImageSize size = measure(built);
  publishDisplaySize(context, size);

  // Drawn at the output's density: the image shows at its logical size, sharp on a larger output.
  std::optional<Bitmap> bitmap = RichTextBitmap::allocate(size.width, size.height, context, kOrigin);
  if (!bitmap) {
    setValueForOutputKey(Value(), "outputImage");
    return true;
  }
  const AttributedString text = withPortParagraphStyle(built);
  const TextLayout layout(text, {static_cast<double>(size.width), static_cast<double>(size.height)});
  // The text block's top edge: at the top, centred, or with the block on the bottom edge.
  const double fitted = layout.fittedHeight();
  double top = 0;
  switch (inputIndex("inputVerticalAlignment")) {
    case 1:
      top = size.height - (fitted + size.height) * 0.5;
      break;
    case 2:
      top = size.height - fitted;
      break;
    default:
      break;
  }
  layout.draw(*bitmap, 0, top, context.outputScale());
  setValueForOutputKey(Value(std::move(*bitmap).toImage(context.outputScale())), "outputImage");
  return true;
}

}  // namespace qva
