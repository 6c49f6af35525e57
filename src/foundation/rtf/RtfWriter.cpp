#include "foundation/rtf/RtfWriter.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "foundation/text/TextEncoding.h"

namespace qva {

namespace {

// A dimension scaled to the integer unit RTF carries, kept within the range of an RTF parameter.
long scaled(double value, double scale) {
  double result = std::round(value * scale);
  if (!(result == result)) {
    return 0;
  }
  return static_cast<long>(std::clamp(result, -2147483647.0, 2147483647.0));
}

void word(std::string& out, const char* name, long parameter) {
  out += '\\';
  out += name;
  out += std::to_string(parameter);
}

void word(std::string& out, const char* name) {
  out += '\\';
  out += name;
}

// Characters for RTF text: ASCII as is (with \, { and } escaped), the rest as \uN with "?".
void appendEscaped(std::string& out, std::u16string_view text, bool inTable) {
  for (char16_t unit : text) {
    bool special = unit == u'\\' || unit == u'{' || unit == u'}' || (inTable && unit == u';');
    if (special && inTable) {
      static constexpr char kHex[] = "0123456789abcdef";
      out += "\\'";
      out += kHex[unit >> 4];
      out += kHex[unit & 0xF];
    } else if (special) {
      out += '\\';
      out += static_cast<char>(unit);
    } else if (unit == u'\n' && !inTable) {
      out += "\\\n";
    } else if (unit == u'\t' && !inTable) {
      out += "\\tab ";
    } else if (unit == u'\u2028' && !inTable) {
      out += "\\line ";
    } else if (unit >= 0x20 && unit < 0x7F) {
      out += static_cast<char>(unit);
    } else {
      word(out, "u", static_cast<int16_t>(unit));
      out += " ?";
    }
  }
}

class ColorTable {
 public:
  // The table index of the colour (entry 0 is the automatic colour).
  int indexOf(const Color& color) {
    auto found = std::find(colors_.begin(), colors_.end(), color);
    if (found != colors_.end()) {
      return static_cast<int>(found - colors_.begin()) + 1;
    }
    colors_.push_back(color);
    return static_cast<int>(colors_.size());
  }

  void write(std::string& out) const {
    out += "{\\colortbl;";
    for (const Color& color : colors_) {
      word(out, "red", scaled(std::clamp(color.red, 0.0, 1.0), 255));
      word(out, "green", scaled(std::clamp(color.green, 0.0, 1.0), 255));
      word(out, "blue", scaled(std::clamp(color.blue, 0.0, 1.0), 255));
      out += ';';
    }
    out += "}\n{\\*\\expandedcolortbl;";
    for (const Color& color : colors_) {
      word(out, "csgenericrgb");
      for (double component : {color.red, color.green, color.blue}) {
        word(out, "c", scaled(std::clamp(component, 0.0, 1.0), 100000));
      }
      if (color.alpha != 1) {
        word(out, "c", scaled(std::clamp(color.alpha, 0.0, 1.0), 100000));
      }
      out += ';';
    }
    out += "}\n";
  }

 private:
  std::vector<Color> colors_;
};

class FontTable {
 public:
  int indexOf(const std::string& family) {
    auto found = std::find(families_.begin(), families_.end(), family);
    if (found != families_.end()) {
      return static_cast<int>(found - families_.begin());
    }
    families_.push_back(family);
    return static_cast<int>(families_.size()) - 1;
  }

  void write(std::string& out) const {
    out += "{\\fonttbl";
    for (std::size_t i = 0; i < families_.size(); ++i) {
      word(out, "f", static_cast<long>(i));
      out += "\\fnil\\fcharset0 ";
      appendEscaped(out, TextEncoding::utf16FromUtf8(families_[i]), true);
      out += ';';
    }
    out += "}\n";
  }

 private:
  std::vector<std::string> families_;
};

void writeUnderline(std::string& out, int mask) {
  using namespace TextStyleMask;
  struct Named {
    int mask;
    const char* name;
  };
  static constexpr Named kNamed[] = {{Single, "ul"},
                                     {Thick, "ulth"},
                                     {Double, "uldb"},
                                     {Single | PatternDot, "uld"},
                                     {Single | PatternDash, "uldash"},
                                     {Single | PatternDashDot, "uldashd"},
                                     {Single | PatternDashDotDot, "uldashdd"},
                                     {Single | ByWord, "ulw"}};
  for (const Named& named : kNamed) {
    if (named.mask == mask) {
      word(out, named.name);
      return;
    }
  }
  word(out, "ul");
  word(out, "ulstyle", mask);
}

void writeStrikethrough(std::string& out, int mask) {
  if (mask == TextStyleMask::Single) {
    word(out, "strike");
  } else if (mask == TextStyleMask::Double) {
    word(out, "striked1");
  } else {
    word(out, "strike");
    word(out, "strikestyle", mask);
  }
}

void writeParagraph(std::string& out, const ParagraphStyle& paragraph) {
  word(out, "pard");
  static constexpr const char* kAlignment[] = {"ql", "qr", "qc", "qj", nullptr};
  if (paragraph.alignment != TextAlignment::Natural) {
    word(out, kAlignment[static_cast<int>(paragraph.alignment)]);
  }
  if (paragraph.defaultTabInterval != 0) {
    word(out, "pardeftab", scaled(paragraph.defaultTabInterval, 20));
  }
  if (paragraph.lineBreakMode != ParagraphStyle{}.lineBreakMode) {
    word(out, "qvalinebreakmode", static_cast<long>(paragraph.lineBreakMode));
  }
  for (const TabStop& tab : paragraph.tabStops) {
    if (tab.decimal) {
      word(out, "tqdec");
    } else if (tab.alignment == TextAlignment::Right) {
      word(out, "tqr");
    } else if (tab.alignment == TextAlignment::Center) {
      word(out, "tqc");
    }
    word(out, "tx", scaled(tab.location, 20));
  }
  if (paragraph.headIndent != 0) {
    word(out, "li", scaled(paragraph.headIndent, 20));
  }
  if (paragraph.firstLineHeadIndent != paragraph.headIndent) {
    word(out, "fi", scaled(paragraph.firstLineHeadIndent, 20) - scaled(paragraph.headIndent, 20));
  }
  if (paragraph.tailIndent != 0) {
    word(out, "ri", scaled(-paragraph.tailIndent, 20));
  }
  if (paragraph.lineHeightMultiple != 0) {
    word(out, "sl", scaled(paragraph.lineHeightMultiple, 240));
    word(out, "slmult", 1);
  }
  if (paragraph.lineSpacing != 0) {
    word(out, "slleading", scaled(paragraph.lineSpacing, 20));
  }
  if (paragraph.minimumLineHeight != 0) {
    word(out, "slminimum", scaled(paragraph.minimumLineHeight, 20));
  }
  if (paragraph.maximumLineHeight != 0) {
    word(out, "slmaximum", scaled(paragraph.maximumLineHeight, 20));
  }
  if (paragraph.paragraphSpacing != 0) {
    word(out, "sa", scaled(paragraph.paragraphSpacing, 20));
  }
  if (paragraph.paragraphSpacingBefore != 0) {
    word(out, "sb", scaled(paragraph.paragraphSpacingBefore, 20));
  }
  out += '\n';
}

void writeCharacter(std::string& out, const TextAttributes& attributes, FontTable& fonts,
                    ColorTable& colors) {
  const TextAttributes defaults;
  word(out, "plain");
  word(out, "f", fonts.indexOf(attributes.font.family));
  word(out, "fs", scaled(attributes.font.pointSize, 2));
  if (scaled(attributes.font.pointSize, 2) * 500 != scaled(attributes.font.pointSize, 1000)) {
    word(out, "fsmilli", scaled(attributes.font.pointSize, 1000));
  }
  if (attributes.font.bold) {
    word(out, "b");
  }
  if (attributes.font.italic) {
    word(out, "i");
  }
  if (attributes.foregroundColor != defaults.foregroundColor) {
    word(out, "cf", colors.indexOf(attributes.foregroundColor));
  }
  if (attributes.backgroundColor) {
    word(out, "cb", colors.indexOf(*attributes.backgroundColor));
  }
  if (attributes.underlineStyle != TextStyleMask::None) {
    writeUnderline(out, attributes.underlineStyle);
  }
  if (attributes.underlineColor) {
    word(out, "ulc", colors.indexOf(*attributes.underlineColor));
  }
  if (attributes.strikethroughStyle != TextStyleMask::None) {
    writeStrikethrough(out, attributes.strikethroughStyle);
  }
  if (attributes.strikethroughColor) {
    word(out, "strikec", colors.indexOf(*attributes.strikethroughColor));
  }
  if (attributes.strokeWidth != 0) {
    word(out, "outl", 0);
    word(out, "strokewidth", scaled(attributes.strokeWidth, 20));
  }
  if (attributes.strokeColor) {
    word(out, "strokec", colors.indexOf(*attributes.strokeColor));
  }
  if (attributes.kerning != 0) {
    word(out, "expnd", scaled(attributes.kerning, 4));
    word(out, "expndtw", scaled(attributes.kerning, 20));
  }
  if (attributes.obliqueness != 0) {
    word(out, "obliqueness", scaled(attributes.obliqueness, 2000));
  }
  if (attributes.expansion != 0) {
    word(out, "expansion", scaled(attributes.expansion, 2000));
  }
  if (attributes.ligature != defaults.ligature) {
    word(out, "CocoaLigature", attributes.ligature);
  }
  if (attributes.baselineOffset > 0) {
    word(out, "up", scaled(attributes.baselineOffset, 2));
  } else if (attributes.baselineOffset < 0) {
    word(out, "dn", scaled(-attributes.baselineOffset, 2));
  }
  // Levels beyond the first have no RTF word; they are written as the first.
  if (attributes.superscript > 0) {
    word(out, "super");
  } else if (attributes.superscript < 0) {
    word(out, "sub");
  }
  if (attributes.shadow) {
    const TextShadow& shadow = *attributes.shadow;
    word(out, "shad");
    word(out, "shadx", scaled(shadow.offsetX, 20));
    word(out, "shady", scaled(shadow.offsetY, 20));
    word(out, "shadr", scaled(shadow.blurRadius, 20));
    word(out, "shado", scaled(std::clamp(shadow.color.alpha, 0.0, 1.0), 255));
    word(out, "shadc", colors.indexOf(shadow.color));
  }
  out += ' ';
}

}  // namespace

std::string RtfWriter::write(const AttributedString& text) {
  FontTable fonts;
  ColorTable colors;
  std::string body;
  const ParagraphStyle* paragraph = nullptr;
  for (const AttributedString::Run& run : text.runs()) {
    if (paragraph == nullptr || *paragraph != run.attributes.paragraphStyle) {
      paragraph = &run.attributes.paragraphStyle;
      writeParagraph(body, *paragraph);
    }
    writeCharacter(body, run.attributes, fonts, colors);
    appendEscaped(body, std::u16string_view(text.text()).substr(run.location, run.length), false);
  }
  if (text.empty()) {
    fonts.indexOf(TextAttributes{}.font.family);
  }
  std::string out = "{\\rtf1\\ansi\\ansicpg1252\n";
  fonts.write(out);
  colors.write(out);
  out += body;
  out += '}';
  return out;
}

}  // namespace qva
