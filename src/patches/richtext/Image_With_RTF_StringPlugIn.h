#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "foundation/text/AttributedString.h"
#include "foundation/text/TextLayout.h"
#include "framework/QVAPlugIn.h"

namespace qva {

// "Image With RTF String": a string laid out with the style string's attributes (or its own, when it is
// RTF and the style is ignored) and drawn into a transparent image of a fixed size or of the size that
// fits the text. Optionally counts the characters, words and lines on three more output ports.
class Image_With_RTF_StringPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();
  // The default of inputRTFStyle: LucidaGrande 40 points, red, with a black shadow.
  static const std::string& defaultStyleString();
  // The port indices of the alignment and line break menus; none for an index out of range.
  static std::optional<TextAlignment> alignmentForIndex(std::uint32_t index);
  static std::optional<LineBreakMode> lineBreakModeForIndex(std::uint32_t index);

  Image_With_RTF_StringPlugIn();

  bool showStatistics() const { return showStatistics_; }
  // Adds the three statistics outputs, or removes them.
  void setShowStatistics(bool showStatistics);

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
  PropertyList serializedValueForKey(const std::string& key) const override;
  void setSerializedValueForKey(const PropertyList& value, const std::string& key) override;

 private:
  struct ImageSize {
    std::uint32_t width;
    std::uint32_t height;
  };

  AttributedString builtText() const;
  // The image size; the text is laid out (and counted) only where the size or the statistics need it.
  ImageSize measure(const AttributedString& text);
  void publishStatistics(const AttributedString& text, const TextLayout& layout);
  // The text with the paragraph style of its first character over all of it, and the ports' line break
  // mode and alignment.
  AttributedString withPortParagraphStyle(const AttributedString& text) const;
  void publishDisplaySize(const ExecutionContext& context, ImageSize size);

  bool showStatistics_ = false;
};

}  // namespace qva
