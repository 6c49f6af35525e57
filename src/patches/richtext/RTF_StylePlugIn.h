#pragma once

#include <optional>
#include <string>

#include "foundation/text/TextAttributes.h"
#include "framework/QVAPlugIn.h"

namespace qva {

// "RTF Style": builds the style string, an RTF document of "Format String" whose first character
// carries the formatting set on the ports; every patch with an inputRTFStyle port reads it back.
class RTF_StylePlugIn final : public QVAPlugIn {
 public:
  // What the ports hold, as execute reads them.
  struct Settings {
    // None: the system font at 20 points.
    std::optional<std::string> fontName = "LucidaGrande";
    double fontSize = 40;
    bool useShadow = true;
    double shadowOpacity = 1;
    double shadowBlurRadius = 1;
    double shadowOffsetX = 2;
    double shadowOffsetY = -2;
    // None: white.
    std::optional<Color> fontColor = Color{1, 0, 0, 1};
    std::optional<Color> underlineColor = Color{1, 0, 0, 1};
    std::optional<Color> strokeColor = Color{1, 0, 0, 1};
    std::optional<Color> strikethroughColor = Color{1, 0, 0, 1};
    std::uint32_t underlinePattern = 0;
    std::uint32_t underlineStyle = 0;
    bool underlineWordsOnly = false;
    std::uint32_t strikethroughPattern = 0;
    std::uint32_t strikethroughStyle = 0;
    bool strikethroughWordsOnly = false;
    double kerning = 0;
    double strokeWidth = 0;
    double skew = 0;
    double maximumLineHeight = 0;
    double minimumLineHeight = 0;
    double lineSpacing = 0;
  };

  static const PatchClass& patchClass();
  // The name and size that stand for the system font.
  static const char* systemFontName() { return "LucidaGrande"; }
  static constexpr double kSystemFontSize = 20;

  // The underline or strikethrough mask: by-word bit, style (1 single, 2 thick, 3 double) and pattern
  // (1 dot ... 4 dash dot dot); out-of-range values add nothing.
  static int styleMask(bool wordsOnly, std::uint32_t style, std::uint32_t pattern);
  static TextAttributes attributesForSettings(const Settings& settings);
  // The style string of the settings; none when no RTF results.
  static std::optional<std::string> styleString(const Settings& settings);
  // The style string of the ports' defaults, the default of other patches' inputRTFStyle ports.
  static const std::string& defaultStyleString();

  RTF_StylePlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

 private:
  Settings settingsFromPorts() const;
};

}  // namespace qva
