#include "patches/richtext/RTF_StylePlugIn.h"

#include "foundation/rtf/RTFStringExtensions.h"
#include "foundation/text/FontCatalogue.h"

namespace qva {

namespace {

const std::vector<std::string>& patternMenu() {
  static const std::vector<std::string> items{"Solid", ". (Dot)", "- (Dash)", "-. (Dash Dot)",
                                              "-.. (Dash Dot Dot)"};
  return items;
}

const std::vector<std::string>& styleMenu() {
  static const std::vector<std::string> items{"None", "Single", "Thick", "Double"};
  return items;
}

PortDescription numberInput(const char* key, const char* name, double defaultValue) {
  return PortDescription::port(key, PortType::Number, name, Value(defaultValue));
}

PortDescription colorInput(const char* key, const char* name) {
  return PortDescription::port(key, PortType::Color, name, Value(Color{1, 0, 0, 1}));
}

PortDescription menuInput(const char* key, const char* name, const std::vector<std::string>& menu) {
  return PortDescription::port(key, PortType::Index, name)
      .withMaximum(static_cast<double>(menu.size() - 1))
      .withMenu(menu);
}

PortDescription booleanInput(const char* key, const char* name, bool defaultValue) {
  return PortDescription::port(key, PortType::Boolean, name, Value(defaultValue));
}

}  // namespace

const PatchClass& RTF_StylePlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "RTF_StylePlugIn";
    c.name = "RTF Style";
    c.description =
        "Generates an string of RTF formats according to the settings on the input ports. Use this patch in "
        "combination with other RTF patches.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = {
        PortDescription::port("inputFontName", PortType::String, "Font Name", Value("LucidaGrande")),
        numberInput("inputFontSize", "Font Size", 40),
        booleanInput("inputUseShadow", "Use Shadow", true),
        numberInput("inputShadowOpacity", "Shadow Opacity", 1).withMinimum(0).withMaximum(1),
        numberInput("inputShadowBlurRadius", "Shadow Blur Radius", 1).withMinimum(0),
        numberInput("inputShadowOffsetX", "Shadow Offset X", 2),
        numberInput("inputShadowOffsetY", "Shadow Offset Y", -2),
        colorInput("inputFontColor", "Font Color"),
        menuInput("inputUnderlinePattern", "Underline Pattern", patternMenu()),
        menuInput("inputUnderlineStyle", "Underline Style", styleMenu()),
        booleanInput("inputUnderlineWordsOnly", "Underline Words Only", false),
        colorInput("inputUnderlineColor", "Underline Color"),
        numberInput("inputKerning", "Font Kerning Shift", 0),
        numberInput("inputStrokeWidth", "Stroke Width", 0),
        colorInput("inputStrokeColor", "Stroke Color"),
        menuInput("inputStrikethroughPattern", "Strikethrough Pattern", patternMenu()),
        menuInput("inputStrikethroughStyle", "Strikethrough Style", styleMenu()),
        // The missing "h" is part of saved compositions.
        booleanInput("inputStriketroughWordsOnly", "Strikethrough Words Only", false),
        colorInput("inputStrikethroughColor", "Strikethrough Color"),
        numberInput("inputSkew", "Skew", 0),
        numberInput("inputMaximumLineHeight", "Maximum Line Height", 0).withMinimum(0),
        numberInput("inputMinimumLineHeight", "Minimum Line Height", 0).withMinimum(0),
        numberInput("inputLineSpacing", "Line Spacing", 0).withMinimum(0),
    };
    c.outputs = {PortDescription::port("outputRTFStyle", PortType::String, "RTF Style")};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<RTF_StylePlugIn>(); };
    return c;
  }();
  return patchClass;
}

RTF_StylePlugIn::RTF_StylePlugIn() : QVAPlugIn(patchClass()) {}

int RTF_StylePlugIn::styleMask(bool wordsOnly, std::uint32_t style, std::uint32_t pattern) {
  int mask = wordsOnly ? TextStyleMask::ByWord : 0;
  switch (style) {
    case 1:
      mask += TextStyleMask::Single;
      break;
    case 2:
      mask += TextStyleMask::Thick;
      break;
    case 3:
      mask += TextStyleMask::Double;
      break;
    default:
      break;
  }
  switch (pattern) {
    case 1:
      mask += TextStyleMask::PatternDot;
      break;
    case 2:
      mask += TextStyleMask::PatternDash;
      break;
    case 3:
      mask += TextStyleMask::PatternDashDot;
      break;
    case 4:
      mask += TextStyleMask::PatternDashDotDot;
      break;
    default:
      break;
  }
  return mask;
}

TextAttributes RTF_StylePlugIn::attributesForSettings(const Settings& settings) {
  const Color white{1, 1, 1, 1};
  TextAttributes attributes;
  attributes.foregroundColor = settings.fontColor.value_or(white);
  attributes.underlineColor = settings.underlineColor.value_or(white);
  attributes.strokeColor = settings.strokeColor.value_or(white);
  attributes.strikethroughColor = settings.strikethroughColor.value_or(white);
  if (!settings.fontName) {
    attributes.font = FontDescriptor{systemFontName(), kSystemFontSize};
  } else if (FontCatalogue::shared().fontExists(*settings.fontName)) {
    attributes.font = FontDescriptor{*settings.fontName, static_cast<float>(settings.fontSize)};
  }
  if (settings.useShadow) {
    attributes.shadow = TextShadow{settings.shadowOffsetX, settings.shadowOffsetY, settings.shadowBlurRadius,
                                   Color{0, 0, 0, settings.shadowOpacity}};
  }
  attributes.underlineStyle =
      styleMask(settings.underlineWordsOnly, settings.underlineStyle, settings.underlinePattern);
  attributes.strikethroughStyle =
      styleMask(settings.strikethroughWordsOnly, settings.strikethroughStyle, settings.strikethroughPattern);
  attributes.kerning = settings.kerning;
  attributes.strokeWidth = settings.strokeWidth;
  attributes.obliqueness = settings.skew;
  attributes.paragraphStyle.maximumLineHeight = settings.maximumLineHeight;
  attributes.paragraphStyle.minimumLineHeight = settings.minimumLineHeight;
  attributes.paragraphStyle.lineSpacing = settings.lineSpacing;
  return attributes;
}

std::optional<std::string> RTF_StylePlugIn::styleString(const Settings& settings) {
  return RTFStringExtensions::RTFAsPlainString(
      AttributedString(u"Format String", attributesForSettings(settings)));
}

const std::string& RTF_StylePlugIn::defaultStyleString() {
  static const std::string style = styleString(Settings{}).value_or("");
  return style;
}

RTF_StylePlugIn::Settings RTF_StylePlugIn::settingsFromPorts() const {
  Settings settings;
  const Value& fontName = valueForInputKey("inputFontName");
  settings.fontName = fontName.isNone() ? std::nullopt : std::optional<std::string>(fontName.stringValue());
  settings.fontSize = inputNumber("inputFontSize");
  settings.useShadow = inputBoolean("inputUseShadow");
  settings.shadowOpacity = inputNumber("inputShadowOpacity");
  settings.shadowBlurRadius = inputNumber("inputShadowBlurRadius");
  settings.shadowOffsetX = inputNumber("inputShadowOffsetX");
  settings.shadowOffsetY = inputNumber("inputShadowOffsetY");
  settings.fontColor = valueForInputKey("inputFontColor").colorValue();
  settings.underlineColor = valueForInputKey("inputUnderlineColor").colorValue();
  settings.strokeColor = valueForInputKey("inputStrokeColor").colorValue();
  settings.strikethroughColor = valueForInputKey("inputStrikethroughColor").colorValue();
  settings.underlinePattern = inputIndex("inputUnderlinePattern");
  settings.underlineStyle = inputIndex("inputUnderlineStyle");
  settings.underlineWordsOnly = inputBoolean("inputUnderlineWordsOnly");
  settings.strikethroughPattern = inputIndex("inputStrikethroughPattern");
  settings.strikethroughStyle = inputIndex("inputStrikethroughStyle");
  settings.strikethroughWordsOnly = inputBoolean("inputStriketroughWordsOnly");
  settings.kerning = inputNumber("inputKerning");
  settings.strokeWidth = inputNumber("inputStrokeWidth");
  settings.skew = inputNumber("inputSkew");
  settings.maximumLineHeight = inputNumber("inputMaximumLineHeight");
  settings.minimumLineHeight = inputNumber("inputMinimumLineHeight");
  settings.lineSpacing = inputNumber("inputLineSpacing");
  return settings;
}

bool RTF_StylePlugIn::execute(ExecutionContext&, double, const Arguments&) {
  std::optional<std::string> style = styleString(settingsFromPorts());
  if (!style) {
    logMessage("RTFStyle String is nil!");
    return false;
  }
  setValueForOutputKey(*style, "outputRTFStyle");
  return true;
}

}  // namespace qva
