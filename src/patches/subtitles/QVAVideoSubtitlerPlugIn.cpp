#include "patches/subtitles/QVAVideoSubtitlerPlugIn.h"

#include <cmath>
#include <limits>

#include "foundation/encodings/StringEncodings.h"
#include "framework/StringFormat.h"
#include "patches/subtitles/StringEncodingMenu.h"

namespace qva {

namespace {

// Scripts are timed for this rate; the frame numbers are kept for completeness only.
constexpr std::uint32_t kFramesPerSecond = 60;

// A non-negative number truncated to 32 bits; NaN and negatives give 0, large values the maximum.
std::uint32_t truncatedToUnsigned(double value) {
  if (!(value > 0)) {
    return 0;
  }
  if (value >= static_cast<double>(std::numeric_limits<std::uint32_t>::max())) {
    return std::numeric_limits<std::uint32_t>::max();
  }
  return static_cast<std::uint32_t>(value);
}

// Only the lower-case "\n" breaks a line; the script's own "\N" is left to the renderer.
std::string withLineBreaks(std::string text) {
  for (std::size_t at = text.find("\\n"); at != std::string::npos; at = text.find("\\n", at + 1)) {
    text.replace(at, 2, "\n");
  }
  return text;
}

Color colorFromPrimaryColour(std::int32_t colour) {
  const auto bits = static_cast<std::uint32_t>(colour);
  return Color{(bits & 0xFF) / 255.0, ((bits >> 8) & 0xFF) / 255.0, ((bits >> 16) & 0xFF) / 255.0, 1.0};
}

}  // namespace

const PatchClass& QVAVideoSubtitlerPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAVideoSubtitlerPlugIn";
    c.name = "QVA Video Subtitler";
    c.description = "QVA Video Subtitler - Substation Alpha Compatible Subtitle Generator";
    c.executionMode = ExecutionMode::Provider;
    c.timeMode = TimeMode::Idle;
    c.inputs = {
        PortDescription::port("inputSubtitleFile", PortType::String, "Subtitle File"),
        PortDescription::port("inputMovieTime", PortType::Number, "Movie Time (s)"),
        StringEncodingMenu::port("inputStringEncoding"),
    };
    c.outputs = {
        PortDescription::port("outputSubtitle", PortType::String, "Subtitle String"),
        PortDescription::port("outputFontName", PortType::String, "Font Name"),
        PortDescription::port("outputFontSize", PortType::Index, "Font Size"),
        PortDescription::port("outputFontColor", PortType::Color, "Font Color"),
    };
    c.sortedPropertyPortKeys = std::vector<std::string>{
        "inputSubtitleFile", "inputMovieTime", "inputStringEncoding", "outputSubtitle",
        "outputFontName",    "outputFontSize", "outputFontColor"};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVAVideoSubtitlerPlugIn>(); };
    return c;
  }();
  return patchClass;
}

std::optional<std::string> QVAVideoSubtitlerPlugIn::stringEncodingForIndex(std::uint32_t index) {
  return StringEncodingMenu::encodingForIndex(index);
}

std::uint32_t QVAVideoSubtitlerPlugIn::indexForStringEncoding(const std::string& encoding) {
  return StringEncodingMenu::indexForEncoding(encoding);
}

QVAVideoSubtitlerPlugIn::QVAVideoSubtitlerPlugIn() : QVAPlugIn(patchClass()) {
  videoSubTitle_initArray(m_vst_array);
}

QVAVideoSubtitlerPlugIn::~QVAVideoSubtitlerPlugIn() {
  videoSubTitle_freeArray(m_vst_array);
}

bool QVAVideoSubtitlerPlugIn::execute(ExecutionContext& context, double, const Arguments&) {
  pollInputPorts(context);
  return true;
}

void QVAVideoSubtitlerPlugIn::pollInputPorts(ExecutionContext& context) {
  if (didValueForInputKeyChange("inputSubtitleFile")) {
    loadSubtitleFile(context);
    if (m_vst_array.m_array == nullptr) {
      return;
    }
  }
  if (m_vst_array.m_array != nullptr && didValueForInputKeyChange("inputMovieTime")) {
    showEntryAtMovieTime();
  }
}

void QVAVideoSubtitlerPlugIn::loadSubtitleFile(ExecutionContext& context) {
  videoSubTitle_freeArray(m_vst_array);
  const std::string path = context.resolvePath(inputString("inputSubtitleFile"));
  std::string failure;
  const int result = videoSubTitle_readFromFile(path, m_vst_array, kFramesPerSecond, &failure);
  if (result != 0 || m_vst_array.m_array == nullptr) {
    logMessage(formatString("ERROR opening subtitle file: %s", path.c_str()));
    if (!failure.empty()) {
      logMessage(formatString("ERROR reading subtitle script %s: %s", path.c_str(), failure.c_str()));
    }
  }
}

void QVAVideoSubtitlerPlugIn::showEntryAtMovieTime() {
  const std::uint32_t milliseconds = truncatedToUnsigned(inputNumber("inputMovieTime") * 1000.0);
  const std::uint32_t index = videoSubTitle_findEntryByTime(m_vst_array, milliseconds, true);
  if (index == kVideoSubTitleNoEntry) {
    // m_current stays: a seek back into the same entry shows nothing until another entry is reached.
    setValueForOutputKey(Value(""), "outputSubtitle");
    return;
  }
  if (index == m_vst_array.m_current) {
    return;
  }
  m_vst_array.m_current = index;
  const VideoSubTitleEntry& entry = m_vst_array.m_array[index];
  // A script's byte-order mark names its encoding better than any choice made for it.
  const std::optional<std::string> encoding = m_vst_array.m_encoding.empty()
                                                  ? stringEncodingForIndex(inputIndex("inputStringEncoding"))
                                                  : m_vst_array.m_encoding;
  const std::optional<std::string> text =
      encoding ? StringEncodings::decode(entry.m_text, *encoding) : std::nullopt;
  setValueForOutputKey(Value(text ? withLineBreaks(*text) : std::string()), "outputSubtitle");
  if (entry.m_style == m_vst_array.m_cur_style) {
    return;
  }
  m_vst_array.m_cur_style = entry.m_style;
  const std::optional<std::string> fontName = StringEncodings::decode(entry.m_style->m_font_name, "UTF-8");
  setValueForOutputKey(Value(fontName.value_or(std::string())), "outputFontName");
  setValueForOutputKey(Value(truncatedToUnsigned(entry.m_style->m_font_size)), "outputFontSize");
  setValueForOutputKey(Value(colorFromPrimaryColour(entry.m_style->m_primary_colour)), "outputFontColor");
}

}  // namespace qva
