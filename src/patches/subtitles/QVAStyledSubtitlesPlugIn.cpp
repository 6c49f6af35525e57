#include "patches/subtitles/QVAStyledSubtitlesPlugIn.h"

#include <cmath>
#include <optional>
#include <string>

#include "foundation/encodings/StringEncodings.h"
#include "foundation/xpl/xplFiles.h"
#include "framework/StringFormat.h"
#include "patches/subtitles/StringEncodingMenu.h"

namespace qva {

namespace {

// The movie time in whole milliseconds, as libass counts; NaN and negative times are the start.
long long millisecondsOf(double seconds) {
  if (!(seconds > 0)) {
    return 0;
  }
  // About 292 million years: beyond any script, and within range of the arithmetic libass does.
  constexpr double kLatest = 9.2e18 / 1000;
  return static_cast<long long>(std::floor(std::min(seconds, kLatest) * 1000.0));
}

}  // namespace

const PatchClass& QVAStyledSubtitlesPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAStyledSubtitlesPlugIn";
    c.name = "QVA Styled Subtitles";
    c.description = "QVA Styled Subtitles - SubStation Alpha subtitles drawn as authored";
    c.executionMode = ExecutionMode::Provider;
    c.timeMode = TimeMode::None;
    c.inputs = {
        PortDescription::port("inputSubtitleFile", PortType::String, "Subtitle File"),
        PortDescription::port("inputMovieTime", PortType::Number, "Movie Time (s)"),
        StringEncodingMenu::port("inputStringEncoding"),
        PortDescription::port("inputFontsFolder", PortType::String, "Fonts Folder"),
    };
    c.outputs = {
        PortDescription::port("outputImage", PortType::Image, "Image"),
        PortDescription::port("outputEventCount", PortType::Index, "Events Shown"),
    };
    c.sortedPropertyPortKeys =
        std::vector<std::string>{"inputSubtitleFile", "inputMovieTime", "inputStringEncoding",
                                 "inputFontsFolder",  "outputImage",    "outputEventCount"};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVAStyledSubtitlesPlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVAStyledSubtitlesPlugIn::QVAStyledSubtitlesPlugIn() : QVAPlugIn(patchClass()) {}

QVAStyledSubtitlesPlugIn::~QVAStyledSubtitlesPlugIn() = default;

bool QVAStyledSubtitlesPlugIn::execute(ExecutionContext& context, double, const Arguments&) {
  const bool fontsChanged = didValueForInputKeyChange("inputFontsFolder");
  if (fontsChanged) {
    const std::string folder = inputString("inputFontsFolder");
    renderer_.setFontsFolder(folder.empty() ? folder : context.resolvePath(folder));
  }
  const bool scriptChanged =
      didValueForInputKeyChange("inputSubtitleFile") || didValueForInputKeyChange("inputStringEncoding");
  if (scriptChanged) {
    loadScript(context);
  }
  // The script is drawn over the whole viewport at the output's density: as sharp as the output.
  const PixelSize output{static_cast<int>(context.outputPixels(context.viewport().width)),
                         static_cast<int>(context.outputPixels(context.viewport().height))};
  const bool resized = output.width != renderedSize_.width || output.height != renderedSize_.height ||
                       context.outputScale() != renderedScale_;
  if (scriptChanged || fontsChanged || resized || didValueForInputKeyChange("inputMovieTime")) {
    renderFrame(output, context.outputScale());
  }
  return true;
}

void QVAStyledSubtitlesPlugIn::loadScript(ExecutionContext& context) {
  const std::string file = inputString("inputSubtitleFile");
  if (file.empty()) {
    renderer_.clear();
    return;
  }
  const std::string path = context.resolvePath(file);
  std::string bytes;
  std::optional<std::string> script;
  if (xpl_read_file(path, bytes)) {
    // A byte-order mark names the encoding better than any choice made for the script.
    const std::optional<StringEncodings::ByteOrderMark> mark = StringEncodings::byteOrderMark(bytes);
    const std::optional<std::string> encoding =
        mark ? std::optional<std::string>(mark->encoding)
             : StringEncodingMenu::encodingForIndex(inputIndex("inputStringEncoding"));
    if (encoding) {
      script = StringEncodings::decodeReplacing(std::string_view(bytes).substr(mark ? mark->length : 0),
                                                *encoding);
    }
  }
  if (!script || !renderer_.load(*script)) {
    logMessage(formatString("ERROR opening subtitle file: %s", path.c_str()));
  }
}

void QVAStyledSubtitlesPlugIn::renderFrame(const PixelSize& size, double pixelDensity) {
  // An unchanged picture keeps the image it had, so that consumers see no change either; an image of
  // another density is no longer the picture.
  const bool haveImage = outputValue("outputImage").imageValue() != nullptr && pixelDensity == renderedScale_;
  renderedSize_ = size;
  renderedScale_ = pixelDensity;
  if (!renderer_.hasScript()) {
    setValueForOutputKey(Value(ImageRef()), "outputImage");
    setValueForOutputKey(Value(0u), "outputEventCount");
    return;
  }
  const long long milliseconds = millisecondsOf(inputNumber("inputMovieTime"));
  bool unchanged = false;
  std::optional<Bitmap> frame =
      renderer_.render(size.width, size.height, milliseconds, haveImage ? &unchanged : nullptr);
  if (!unchanged) {
    setValueForOutputKey(frame ? Value(std::move(*frame).toImage(pixelDensity)) : Value(ImageRef()),
                         "outputImage");
  }
  setValueForOutputKey(Value(static_cast<std::uint32_t>(renderer_.eventCountAt(milliseconds))),
                       "outputEventCount");
}

}  // namespace qva
