#include "patches/scroller/TextScrollerPlugIn.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "foundation/gl/GLContext.h"
#include "foundation/image/ImageDecoder.h"
#include "foundation/rtf/RTFStringExtensions.h"
#include "framework/ProcessLog.h"
#include "framework/Structure.h"
#include "patches/richtext/RTF_StylePlugIn.h"

namespace qva {

namespace {

// Tiles larger than this on a side are refused without GL too: Cairo draws into at most 32767 pixels a
// side, and GL drivers commonly hold 16384.
constexpr std::uint32_t kMaximumTileSide = 16384;
// Scroll positions this close to a whole pixel are that pixel.
constexpr double kPixelTolerance = 1e-6;

// The ports whose change rebuilds the piece list.
constexpr const char* kRebuildingPorts[] = {
    "inputStrings",
    "inputSecondaryStrings",
    "inputSeparatorString",
    "inputRTFStyle",
    "inputSeparatorRTFStyle",
    "inputSecondaryRTFStyle",
    "inputSecondarySeparatorRTFStyle",
    "inputIgnoreRTFStyle",
    "inputIgnoreSeparatorRTFStyle",
    "inputIgnoreSecondaryRTFStyle",
    "inputIgnoreSecondarySeparatorRTFStyle",
    "inputRepeatMode",
};

enum ResetMode : std::uint32_t { kContinue = 0, kRestart = 1, kFinish = 2, kAppend = 3 };
constexpr std::uint32_t kLoop = 1;

std::size_t memberCount(const StructureRef& structure) {
  return structure ? structure->size() : 0;
}

// The texture bound to GL_TEXTURE_2D on the active unit, and the pixel unpacking state, stay as the
// host left them.
template <typename Body>
void withTexture(std::uint32_t name, Body body) {
  GLint previous = 0;
  glGetIntegerv(GL_TEXTURE_BINDING_2D, &previous);
  glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
  glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
  glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
  glBindTexture(GL_TEXTURE_2D, name);
  body();
  glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(previous));
  glPopClientAttrib();
}

void clearBitmap(Bitmap& bitmap) {
  std::memset(bitmap.bytes(), 0, bitmap.rowBytes() * static_cast<std::size_t>(bitmap.height()));
}

}  // namespace

const PatchClass& TextScrollerPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "TextScrollerPlugIn";
    c.name = "QVA Text Scroller";
    c.description =
        "Takes several arrays of strings as input and scrolls them according to the input parameters set. "
        "For "
        "a simple scroller, only use the \"Strings\" input.\n\"Separator String\" specifies a string that is "
        "used in between two strings from the \"Strings\" array.\n\"Secondary Strings\" can be used if "
        "differently colored texts should be displayed.\n\nThe various RTF Style input ports can be fed by "
        "\"RTF Style\" patches to specify the strings' attributes.\n\n\"Scrolling Speed\" is in px/s.\n\nThe "
        "\"Finished\" output port only works if \"Repeat Mode\" is set to \"Once\" and is set to true if all "
        "strings have finished being displayed one time.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::TimeBase;
    const Value style(RTF_StylePlugIn::defaultStyleString());
    c.inputs = {
        PortDescription::port("inputWidth", PortType::Index, "Image Width", Value(std::uint32_t{80})),
        PortDescription::port("inputHeight", PortType::Index, "Image Height", Value(std::uint32_t{20})),
        PortDescription::port("inputSpeed", PortType::Number, "Scroll Speed", Value(30.0)),
        PortDescription::port("inputStrings", PortType::Structure, "Strings"),
        PortDescription::port("inputSecondaryStrings", PortType::Structure, "Secondary Strings"),
        PortDescription::port("inputSeparatorString", PortType::String, "Separator String", Value(" +++ ")),
        PortDescription::port("inputSeparatorImage", PortType::String, "Separator Image"),
        PortDescription::port("inputSecondarySeparatorString", PortType::String, "Secondary Separator String",
                              Value(": ")),
        PortDescription::port("inputRTFStyle", PortType::String, "RTF Style", style),
        PortDescription::port("inputSeparatorRTFStyle", PortType::String, "Separator RTF Style", style),
        PortDescription::port("inputSecondaryRTFStyle", PortType::String, "Secondary RTF Style", style),
        PortDescription::port("inputSecondarySeparatorRTFStyle", PortType::String,
                              "Secondary Separator RTF Style", style),
        PortDescription::port("inputIgnoreRTFStyle", PortType::Boolean, "Ignore RTF Style", Value(false)),
        PortDescription::port("inputIgnoreSeparatorRTFStyle", PortType::Boolean, "Ignore Separator RTF Style",
                              Value(false)),
        PortDescription::port("inputIgnoreSecondaryRTFStyle", PortType::Boolean, "Ignore Secondary RTF Style",
                              Value(false)),
        PortDescription::port("inputIgnoreSecondarySeparatorRTFStyle", PortType::Boolean,
                              "Ignore Secondary Separator RTF Style", Value(false)),
        PortDescription::port("inputSeparatorFirst", PortType::Boolean, "Separator First", Value(false)),
        PortDescription::port("inputScrollingDirection", PortType::Index, "Scrolling Direction",
                              Value(std::uint32_t{0}))
            .withMaximum(1)
            .withMenu({"Right to Left", "Left to Right"}),
        PortDescription::port("inputRepeatMode", PortType::Index, "Repeat Mode", Value(std::uint32_t{0}))
            .withMaximum(1)
            .withMenu({"Once", "Loop"}),
        PortDescription::port("inputVerticalAlignment", PortType::Index, "Vertical Alignment",
                              Value(std::uint32_t{1}))
            .withMaximum(2)
            .withMenu({"Top", "Center", "Bottom"}),
        PortDescription::port("inputResetMode", PortType::Index, "Reset Mode", Value(std::uint32_t{0}))
            .withMaximum(3)
            .withMenu({"Continue", "Restart", "Finish", "Append"}),
        PortDescription::port("inputMaximumLoops", PortType::Index, "Maximum Loops", Value(std::uint32_t{0})),
    };
    c.outputs = {
        PortDescription::port("outputImage", PortType::Image, "Image"),
        PortDescription::port("outputFinished", PortType::Boolean, "Finished"),
    };
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<TextScrollerPlugIn>(); };
    return c;
  }();
  return patchClass;
}

TextScrollerPlugIn::TextScrollerPlugIn() : QVAPlugIn(patchClass()) {}

bool TextScrollerPlugIn::startExecution(ExecutionContext& context) {
  startTime_ = 0;
  colorSpace_ = context.colorSpace();
  return true;
}

void TextScrollerPlugIn::stopExecution(ExecutionContext& context) {
  imageProvider_.reset();
  releaseRenderResources(context);
  colorSpace_.clear();
}

std::optional<TextAttributes> TextScrollerPlugIn::portStyle(const char* styleKey,
                                                            const char* ignoreKey) const {
  return inputBoolean(ignoreKey) ? std::nullopt
                                 : RTFStringExtensions::describedRTFAttributes(inputString(styleKey));
}

std::shared_ptr<TextScrollerString> TextScrollerPlugIn::convertString(
    const std::string& text, bool ignoreRTF, const std::optional<TextAttributes>& style) const {
  if (ignoreRTF) {
    return TextScrollerString::textScrollerStringWithString(RTFStringExtensions::RTFString(text));
  }
  return TextScrollerString::textScrollerStringWithString(
      AttributedString::fromUtf8(text, style.value_or(TextAttributes{})));
}

void TextScrollerPlugIn::addString(std::shared_ptr<TextScrollerString> piece) {
  totalWidth_ += piece->width();
  stringEnds_.push_back(totalWidth_);
  theStrings_.push_back(std::move(piece));
}

void TextScrollerPlugIn::initialiseStrings(const StructureRef& primary, const StructureRef& secondary,
                                           bool append) {
  if (!append) {
    theStrings_.clear();
    stringEnds_.clear();
    totalWidth_ = 0;
  }
  // Each style string is read once for the whole list, not once per piece.
  const bool ignorePrimary = inputBoolean("inputIgnoreRTFStyle");
  const bool ignoreSecondary = inputBoolean("inputIgnoreSecondaryRTFStyle");
  const std::optional<TextAttributes> primaryStyle = portStyle("inputRTFStyle", "inputIgnoreRTFStyle");
  const std::optional<TextAttributes> secondaryStyle =
      portStyle("inputSecondaryRTFStyle", "inputIgnoreSecondaryRTFStyle");
  const std::size_t secondaryCount = memberCount(secondary);
  // One secondary separator piece serves every secondary string.
  std::shared_ptr<TextScrollerString> secondarySeparator;
  if (secondaryCount > 0) {
    secondarySeparator = convertString(
        inputString("inputSecondarySeparatorString"), inputBoolean("inputIgnoreSecondarySeparatorRTFStyle"),
        portStyle("inputSecondarySeparatorRTFStyle", "inputIgnoreSecondarySeparatorRTFStyle"));
  }

  const bool separatorFirst = inputBoolean("inputSeparatorFirst");
  const bool repeating = inputIndex("inputRepeatMode") != 0;
  const std::size_t primaryCount = memberCount(primary);
  for (std::size_t i = 0; i < primaryCount; ++i) {
    const bool suppressed = append && repeating && i == 0;
    if ((separatorFirst || !theStrings_.empty()) && separatorString_ && !suppressed) {
      addString(separatorString_);
    }
    addString(convertString(primary->at(i).stringValue(), ignorePrimary, primaryStyle));
    if (i < secondaryCount) {
      addString(secondarySeparator);
      addString(convertString(secondary->at(i).stringValue(), ignoreSecondary, secondaryStyle));
    }
  }
  // A looping strip needs a separator between its last string and its first.
  if (!separatorFirst && primaryCount > 0 && separatorString_ && repeating) {
    addString(separatorString_);
  }
  setFinished(false);
}

void TextScrollerPlugIn::setFinished(bool finished) {
  if (finished_ != finished) {
    finished_ = finished;
    setValueForOutputKey(Value(finished), "outputFinished");
  }
}

bool TextScrollerPlugIn::rebuildTextSeparator() {
  const std::string separator = inputString("inputSeparatorString");
  if (separator.empty()) {
    return false;
  }
  separatorString_ = convertString(separator, inputBoolean("inputIgnoreSeparatorRTFStyle"),
                                   portStyle("inputSeparatorRTFStyle", "inputIgnoreSeparatorRTFStyle"));
  return true;
}

bool TextScrollerPlugIn::rebuildImageSeparator(ExecutionContext& context) {
  const std::string path = inputString("inputSeparatorImage");
  if (path.empty()) {
    return false;
  }
  auto decoded = ImageDecoder::decodeFile(context.resolvePath(path));
  if (!decoded.bitmap || decoded.bitmap->width() <= 0 || decoded.bitmap->height() <= 0) {
    logMessage("[TextScrollerPlugIn execute:atTime:withArguments:] the separator image \"" + path +
               "\" was not used: " + (decoded.bitmap ? std::string("it has no pixels") : decoded.error));
    return false;
  }
  separatorString_ = TextScrollerString::textScrollerStringWithImage(std::move(*decoded.bitmap).toImage());
  return true;
}

bool TextScrollerPlugIn::createRenderTarget(ExecutionContext& context, std::size_t slot) {
  auto bitmap = Bitmap::allocate(static_cast<int>(width_), static_cast<int>(height_),
                                 static_cast<std::size_t>(width_) * 4);
  if (!bitmap) {
    return false;
  }
  TextScrollerImageProvider::RenderTarget target{std::move(*bitmap), 0, {}};
  if (context.glContext() != nullptr) {
    GLContext::takeError();
    glGenTextures(1, &target.textureName);
    withTexture(target.textureName, [&] {
      // The tiles are drawn pixel for pixel, so nearest sampling is exact and cheapest.
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
      GLContext::specifyTexture(GL_TEXTURE_2D, target.renderBitmap.width(), target.renderBitmap.height(),
                                target.renderBitmap.bytes());
    });
    if (GLContext::takeError() != 0) {
      glDeleteTextures(1, &target.textureName);
      return false;
    }
  }
  renderTargets_->slots[slot].emplace(std::move(target));
  return true;
}

bool TextScrollerPlugIn::createRenderResources(ExecutionContext& context) {
  releaseRenderResources(context);
  width_ = inputIndex("inputWidth");
  height_ = inputIndex("inputHeight");
  ++tilesVersion_;
  if (width_ == 0 || height_ == 0) {
    return false;
  }
  std::uint32_t largest = kMaximumTileSide;
  if (context.glContext() != nullptr) {
    GLint textureLimit = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &textureLimit);
    largest = std::min(largest, static_cast<std::uint32_t>(std::max(textureLimit, 0)));
  } else {
    ProcessLog::write(
        "[TextScrollerPlugIn createRenderResources:] no GL context: the output image cannot be "
        "drawn");
  }
  renderTargets_ = std::make_shared<TextScrollerImageProvider::RenderTargets>();
  renderTargets_->width = static_cast<int>(width_);
  renderTargets_->height = static_cast<int>(height_);
  if (width_ > largest || height_ > largest || !createRenderTarget(context, 0) ||
      !createRenderTarget(context, 1)) {
    logMessage("[TextScrollerPlugIn createRenderResources:] cannot make two tiles of " +
               std::to_string(width_) + " × " + std::to_string(height_) + " pixels (at most " +
               std::to_string(largest) + " on a side)");
    releaseRenderResources(context);
    return false;
  }
  return true;
}

void TextScrollerPlugIn::releaseRenderResources(ExecutionContext& context) {
  if (renderTargets_ && context.glContext() != nullptr) {
    for (auto& slot : renderTargets_->slots) {
      if (slot && slot->textureName != 0) {
        glDeleteTextures(1, &slot->textureName);
      }
    }
  }
  // Images handed out before are detached from here on.
  renderTargets_.reset();
  width_ = height_ = 0;
  for (const auto& piece : laidOut_) {
    piece->releaseLayout();
  }
  laidOut_.clear();
}

void TextScrollerPlugIn::uploadRenderTarget(std::size_t slot) {
  TextScrollerImageProvider::RenderTarget& target = *renderTargets_->slots[slot];
  target.visibleRows = target.renderBitmap.visibleRows();
  if (target.textureName != 0) {
    withTexture(target.textureName, [&] {
      glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, target.renderBitmap.width(), target.renderBitmap.height(),
                      GL_BGRA, GL_UNSIGNED_INT_8_8_8_8_REV, target.renderBitmap.bytes());
    });
  }
  ++tilesVersion_;
}

void TextScrollerPlugIn::resetAtTime(double time) {
  startTime_ = time;
  renderThreshold_ = renderTotal_ = 0;
  for (std::size_t slot = 0; slot < 2; ++slot) {
    clearBitmap(renderTargets_->slots[slot]->renderBitmap);
    uploadRenderTarget(slot);
  }
}

double TextScrollerPlugIn::drawPass(Bitmap& tile, const TextRect& rect, double pos, double from, double to,
                                    std::vector<std::shared_ptr<TextScrollerString>>& drawn) {
  // The pieces that end before the tile begins draw nothing, so the enumeration starts at the first
  // piece that reaches the tile, found by its end. The widths are floats, and their running sums are
  // exact in doubles, so these ends are the positions that adding the widths one by one gives.
  const double start = pos;
  const auto reaching = std::partition_point(stringEnds_.begin(), stringEnds_.end(),
                                             [&](double end) { return start + end < from; });
  auto i = static_cast<std::size_t>(reaching - stringEnds_.begin());
  pos = i == 0 ? start : start + stringEnds_[i - 1];
  for (; i < theStrings_.size(); ++i) {
    TextScrollerString& piece = *theStrings_[i];
    piece.drawInRect(tile, rect, pos, from, to, rightToLeft_);
    if (piece.hasLayout()) {
      drawn.push_back(theStrings_[i]);
    }
    pos = start + stringEnds_[i];
    if (pos >= to) {
      break;
    }
  }
  return pos;
}

void TextScrollerPlugIn::updateRenderTarget() {
  // The drawing rectangle in the tile's pixels, y down; its bottom edge lies y above the tile's.
  const double firstHeight = theStrings_.front()->height();
  const double height = height_;
  double y = 0;
  if (const std::uint32_t alignment = inputIndex("inputVerticalAlignment"); alignment == 1) {
    y = (firstHeight - height) * 0.5;
  } else if (alignment == 2) {
    y = firstHeight - height;
  }
  const TextRect rect{0, -y, static_cast<double>(width_), height};

  const auto k = static_cast<std::uint64_t>(renderThreshold_) / width_;
  const std::size_t slot = (k + 1) % 2;
  Bitmap& tile = renderTargets_->slots[slot]->renderBitmap;
  clearBitmap(tile);

  const double from = renderThreshold_;
  const double to = from + width_;
  double pos = renderTotal_;
  auto loops = std::numeric_limits<std::uint32_t>::max();
  if (totalWidth_ <= 0) {
    loops = 0;
  } else if (const double passes = renderTotal_ / totalWidth_; passes < loops) {
    loops = static_cast<std::uint32_t>(passes);
  }
  // Maximum Loops 0 wraps round to the largest count: no limit.
  const std::uint32_t limit = inputIndex("inputMaximumLoops") - 1u;
  std::vector<std::shared_ptr<TextScrollerString>> drawn;
  while (limit >= loops && !finished_ && to > pos) {
    pos = drawPass(tile, rect, pos, from, to, drawn);
    if (to > pos) {
      // The whole pass fitted before the tile's end.
      renderTotal_ += totalWidth_;
      if (nextStrings_) {
        const StructureRef primary = std::move(nextStrings_);
        const StructureRef secondary = std::move(nextSecondaryStrings_);
        nextStrings_.reset();
        nextSecondaryStrings_.reset();
        initialiseStrings(primary, secondary, inputIndex("inputResetMode") == kAppend);
      } else if (inputIndex("inputRepeatMode") != kLoop) {
        setFinished(true);
        break;
      }
      // A strip of no width never reaches the tile's end.
      if (totalWidth_ <= 0) {
        break;
      }
    }
    ++loops;
  }

  // Only the pieces this tile drew keep their layouts; the next tile draws those that straddle into it.
  std::sort(drawn.begin(), drawn.end());
  drawn.erase(std::unique(drawn.begin(), drawn.end()), drawn.end());
  for (const auto& piece : laidOut_) {
    if (!std::binary_search(drawn.begin(), drawn.end(), piece)) {
      piece->releaseLayout();
    }
  }
  laidOut_ = std::move(drawn);

  uploadRenderTarget(slot);
  renderThreshold_ += width_;
  ++renderedTiles_;
}

void TextScrollerPlugIn::publishImage() {
  const Shown now{TextScrollerImageProvider::scrollPixel(renderPosition_), rightToLeft_, tilesVersion_};
  if (imageProvider_ && now == shown_) {
    return;
  }
  shown_ = now;
  imageProvider_ =
      std::make_shared<TextScrollerImageProvider>(renderTargets_, renderPosition_, rightToLeft_, colorSpace_);
  setValueForOutputKey(Value(ImageRef(imageProvider_)), "outputImage");
}

bool TextScrollerPlugIn::execute(ExecutionContext& context, double time, const Arguments& /*arguments*/) {
  if (didValueForInputKeyChange("inputScrollingDirection")) {
    portChanged_ |= kDirectionChanged;
  }
  if (didValueForInputKeyChange("inputWidth") || didValueForInputKeyChange("inputHeight")) {
    portChanged_ |= kSizeChanged;
  }
  if (didValueForInputKeyChange("inputSeparatorString")) {
    portChanged_ |= kSeparatorStringChanged | kStringsChanged;
  }
  if (didValueForInputKeyChange("inputSeparatorImage")) {
    portChanged_ |= kSeparatorImageChanged | kStringsChanged;
  }
  for (const char* key : kRebuildingPorts) {
    if (didValueForInputKeyChange(key)) {
      portChanged_ |= kStringsChanged;
    }
  }

  if ((portChanged_ & kSizeChanged) != 0 || width_ == 0 || height_ == 0) {
    portChanged_ &= ~kSizeChanged;
    // A size that cannot be had is reported once, when it is set.
    if (!createRenderResources(context)) {
      width_ = inputIndex("inputWidth");
      height_ = inputIndex("inputHeight");
    }
  }
  if (!renderTargets_) {
    return false;
  }

  bool separatorSet = false;
  if ((portChanged_ & kSeparatorStringChanged) != 0) {
    separatorSet = rebuildTextSeparator();
    portChanged_ &= ~kSeparatorStringChanged;
  }
  if ((portChanged_ & kSeparatorImageChanged) != 0) {
    separatorSet = rebuildImageSeparator(context) || separatorSet;
    portChanged_ &= ~kSeparatorImageChanged;
  }
  if ((portChanged_ & kDirectionChanged) != 0) {
    rightToLeft_ = inputIndex("inputScrollingDirection") == 0;
    portChanged_ &= ~kDirectionChanged;
  }

  const bool stringsChanged = (portChanged_ & kStringsChanged) != 0;
  portChanged_ &= ~kStringsChanged;
  if (stringsChanged || separatorSet) {
    const StructureRef strings = valueForInputKey("inputStrings").structureValue();
    const StructureRef secondaryStrings = valueForInputKey("inputSecondaryStrings").structureValue();
    switch (inputIndex("inputResetMode")) {
      case kContinue:
        initialiseStrings(strings, secondaryStrings, false);
        break;
      case kRestart:
        initialiseStrings(strings, secondaryStrings, false);
        resetAtTime(time);
        break;
      case kFinish:
      case kAppend:
        if (theStrings_.empty()) {
          initialiseStrings(strings, secondaryStrings, false);
        } else {
          nextStrings_ = strings;
          nextSecondaryStrings_ = secondaryStrings;
        }
        break;
      default:
        break;
    }
  } else if (time == 0) {
    resetAtTime(0);
  }

  if (!theStrings_.empty()) {
    renderPosition_ = (time - startTime_) * inputNumber("inputSpeed");
    // Frame times such as 481/50 are not exact in binary, and a position a hair below a whole pixel
    // would be truncated to the pixel before: the crawl would step 3 and 5 pixels instead of 4.
    if (const double pixel = std::round(renderPosition_);
        std::abs(renderPosition_ - pixel) < kPixelTolerance) {
      renderPosition_ = pixel;
    }
    // Not a number never reaches the threshold.
    if (renderPosition_ >= renderThreshold_) {
      updateRenderTarget();
    }
  }
  publishImage();
  return true;
}

}  // namespace qva
