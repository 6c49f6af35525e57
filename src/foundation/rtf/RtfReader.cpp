#include "foundation/rtf/RtfReader.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

namespace qva {

namespace {

// Deep enough for any real document, bounded so that hostile input cannot exhaust memory.
constexpr std::size_t kMaxGroupDepth = 50000;
constexpr std::size_t kMaxWordLength = 32;
constexpr int64_t kParameterLimit = 2147483647;

bool isLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

int hexValue(char c) {
  if (isDigit(c)) {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  return -1;
}

double twips(int value) {
  return value / 20.0;
}

// Destinations whose content is never text.
bool isSkippedDestination(std::string_view word) {
  static constexpr std::array<std::string_view, 40> kSkipped{"annotation",   "atnauthor",
                                                             "atnid",        "bkmkend",
                                                             "bkmkstart",    "colorschememapping",
                                                             "datastore",    "docvar",
                                                             "falt",         "fldinst",
                                                             "filetbl",      "footer",
                                                             "footerf",      "footerl",
                                                             "footerr",      "footnote",
                                                             "ftnsep",       "ftnsepc",
                                                             "generator",    "header",
                                                             "headerf",      "headerl",
                                                             "headerr",      "info",
                                                             "latentstyles", "listoverridetable",
                                                             "listtable",    "mmathPr",
                                                             "NeXTGraphic",  "nonshppict",
                                                             "object",       "objdata",
                                                             "panose",       "pgdsctbl",
                                                             "pict",         "revtbl",
                                                             "rsidtbl",      "stylesheet",
                                                             "themedata",    "xmlnstbl"};
  return std::find(kSkipped.begin(), kSkipped.end(), word) != kSkipped.end();
}

struct SymbolWord {
  std::string_view word;
  char16_t unit;
};

constexpr std::array<SymbolWord, 21> kSymbolWords{{
    {"par", u'\n'},         {"line", u'\u2028'},    {"tab", u'\t'},           {"page", u'\f'},
    {"sect", u'\n'},        {"cell", u'\t'},        {"nestcell", u'\t'},      {"row", u'\n'},
    {"nestrow", u'\n'},     {"emdash", u'\u2014'},  {"endash", u'\u2013'},    {"bullet", u'\u2022'},
    {"lquote", u'\u2018'},  {"rquote", u'\u2019'},  {"ldblquote", u'\u201C'}, {"rdblquote", u'\u201D'},
    {"emspace", u'\u2003'}, {"enspace", u'\u2002'}, {"qmspace", u'\u2005'},   {"zwj", u'\u200D'},
    {"zwnj", u'\u200C'},
}};

}  // namespace

RtfReader::RtfReader(std::string_view document) : input_(document) {}

RtfReader::Result RtfReader::read(std::string_view document) {
  RtfReader reader(document);
  reader.run();
  return std::move(reader.result_);
}

void RtfReader::fail(std::string message) {
  if (!result_.error) {
    result_.error = true;
    result_.message = std::move(message);
  }
  finished_ = true;
}

void RtfReader::run() {
  if (input_.substr(0, 5) != "{\\rtf") {
    fail("not an RTF document");
    return;
  }
  while (!finished_ && position_ < input_.size()) {
    char c = input_[position_++];
    switch (c) {
      case '{':
        openGroup();
        break;
      case '}':
        closeGroup();
        break;
      case '\\':
        readControl();
        break;
      case '\r':
      case '\n':
      case '\0':
        break;
      default:
        textByte(c, false);
        break;
    }
  }
  flushText();
  if (!finished_ || !groups_.empty()) {
    fail("unbalanced groups: the document ends inside a group");
  }
}

void RtfReader::openGroup() {
  flushText();
  skipFallback_ = 0;
  if (groups_.size() >= kMaxGroupDepth) {
    fail("groups nested too deeply");
    return;
  }
  if (groups_.empty()) {
    groups_.emplace_back();
  } else {
    groups_.push_back(groups_.back());
  }
}

void RtfReader::closeGroup() {
  flushText();
  skipFallback_ = 0;
  ignorableDestination_ = false;
  if (groups_.empty()) {
    return;
  }
  // A font entry whose writer left out the closing semicolon.
  if (state().destination == Destination::FontTable && (!tableText_.empty() || !tableUnits_.empty())) {
    commitTableEntry();
  }
  groups_.pop_back();
  if (groups_.empty()) {
    finished_ = true;
  }
}

void RtfReader::readControl() {
  if (position_ >= input_.size()) {
    fail("the document ends after a backslash");
    return;
  }
  char c = input_[position_];
  if (!isLetter(c)) {
    ++position_;
    switch (c) {
      case '\'': {
        if (position_ + 2 > input_.size()) {
          fail("the document ends inside a \\' escape");
          return;
        }
        int high = hexValue(input_[position_]);
        int low = hexValue(input_[position_ + 1]);
        position_ += 2;
        if (high >= 0 && low >= 0) {
          textByte(static_cast<char>(high * 16 + low), true);
        }
        return;
      }
      case '*':
        ignorableDestination_ = true;
        return;
      case '\\':
      case '{':
      case '}':
        textByte(c, true);
        return;
      case '\r':
      case '\n':
        controlWord("par", std::nullopt);
        return;
      case '~':
        controlSymbol(u'\u00A0');
        return;
      case '-':
        controlSymbol(u'\u00AD');
        return;
      case '_':
        controlSymbol(u'\u2011');
        return;
      case '\t':
        controlSymbol(u'\t');
        return;
      default:
        // Other control symbols (\| \: and the like) carry no text.
        controlSymbol(std::nullopt);
        return;
    }
  }
  std::size_t start = position_;
  while (position_ < input_.size() && isLetter(input_[position_])) {
    ++position_;
  }
  std::string_view word = input_.substr(start, position_ - start);
  std::optional<int> parameter;
  bool negative = false;
  if (position_ < input_.size() && input_[position_] == '-' && position_ + 1 < input_.size() &&
      isDigit(input_[position_ + 1])) {
    negative = true;
    ++position_;
  }
  if (position_ < input_.size() && isDigit(input_[position_])) {
    int64_t value = 0;
    while (position_ < input_.size() && isDigit(input_[position_])) {
      value = std::min(value * 10 + (input_[position_] - '0'), kParameterLimit);
      ++position_;
    }
    parameter = static_cast<int>(negative ? -value : value);
  }
  if (position_ < input_.size() && input_[position_] == ' ') {
    ++position_;
  }
  if (word == "bin") {
    flushText();
    std::size_t length = static_cast<std::size_t>(std::max(parameter.value_or(0), 0));
    if (length > input_.size() - position_) {
      fail("\\bin data runs past the end of the document");
      return;
    }
    position_ += length;
    return;
  }
  if (word.size() > kMaxWordLength) {
    return;
  }
  controlWord(word, parameter);
}

void RtfReader::controlWord(std::string_view word, std::optional<int> parameter) {
  if (groups_.empty()) {
    return;
  }
  if (skipFallback_ > 0) {
    --skipFallback_;
    return;
  }
  flushText();
  bool ignorable = std::exchange(ignorableDestination_, false);
  if (state().destination == Destination::Skip) {
    return;
  }
  if (destinationWord(word)) {
    return;
  }
  if (ignorable) {
    state().destination = Destination::Skip;
    return;
  }
  switch (state().destination) {
    case Destination::FontTable:
    case Destination::ColorTable:
    case Destination::ExpandedColorTable:
      tableWord(word, parameter);
      return;
    case Destination::Skip:
      return;
    case Destination::Text:
      break;
  }
  if (characterWord(word, parameter) || paragraphWord(word, parameter) || specialCharacterWord(word)) {
    return;
  }
  int value = parameter.value_or(0);
  if (word == "ansi") {
    documentEncoding_ = TextEncoding::windowsLatin1();
  } else if (word == "mac") {
    documentEncoding_ = TextEncoding::macOSRoman();
  } else if (word == "pc") {
    documentEncoding_ = TextEncoding::fromCodePage(437).value_or(documentEncoding_);
  } else if (word == "pca") {
    documentEncoding_ = TextEncoding::fromCodePage(850).value_or(documentEncoding_);
  } else if (word == "ansicpg") {
    documentEncoding_ = TextEncoding::fromCodePage(value).value_or(documentEncoding_);
  } else if (word == "deff") {
    defaultFont_ = value;
  } else if (word == "uc") {
    state().unicodeSkip = std::clamp(value, 0, 16);
  } else if (word == "u" && parameter) {
    appendUnit(static_cast<char16_t>(static_cast<uint16_t>(value)));
    skipFallback_ = state().unicodeSkip;
  }
}

bool RtfReader::destinationWord(std::string_view word) {
  GroupState& current = state();
  if (word == "fonttbl") {
    current.destination = Destination::FontTable;
    tableText_.clear();
    tableUnits_.clear();
  } else if (word == "colortbl") {
    current.destination = Destination::ColorTable;
    colors_.clear();
    tableEntryHasColor_ = false;
    red_ = green_ = blue_ = 0;
  } else if (word == "expandedcolortbl") {
    current.destination = Destination::ExpandedColorTable;
    expandedColors_.clear();
    tableComponents_.clear();
  } else if (isSkippedDestination(word)) {
    current.destination = Destination::Skip;
  } else {
    return false;
  }
  return true;
}

void RtfReader::tableWord(std::string_view word, std::optional<int> parameter) {
  int value = parameter.value_or(0);
  switch (state().destination) {
    case Destination::FontTable:
      if (word == "f") {
        if (!tableText_.empty() || !tableUnits_.empty()) {
          commitTableEntry();
        }
        tableFont_ = value;
        tableFontEncoding_.reset();
      } else if (word == "fcharset") {
        tableFontEncoding_ = TextEncoding::fromCharset(value);
      } else if (word == "cpg") {
        if (auto encoding = TextEncoding::fromCodePage(value)) {
          tableFontEncoding_ = encoding;
        }
      } else if (word == "u") {
        tableUnits_ += TextEncoding::utf16FromUtf8(tableText_);
        tableText_.clear();
        tableUnits_.push_back(static_cast<char16_t>(static_cast<uint16_t>(value)));
        skipFallback_ = state().unicodeSkip;
      }
      return;
    case Destination::ColorTable:
      if (word == "red") {
        red_ = std::clamp(value, 0, 255);
      } else if (word == "green") {
        green_ = std::clamp(value, 0, 255);
      } else if (word == "blue") {
        blue_ = std::clamp(value, 0, 255);
      } else {
        return;
      }
      tableEntryHasColor_ = true;
      return;
    case Destination::ExpandedColorTable:
      if (word == "c") {
        tableComponents_.push_back(std::clamp(value, 0, 100000));
      }
      return;
    case Destination::Text:
    case Destination::Skip:
      return;
  }
}

void RtfReader::commitTableEntry() {
  switch (state().destination) {
    case Destination::FontTable: {
      const TextEncoding& encoding = tableFontEncoding_ ? *tableFontEncoding_ : documentEncoding_;
      std::u16string name = tableUnits_ + encoding.decode(tableText_);
      while (!name.empty() && name.back() == u' ') {
        name.pop_back();
      }
      while (!name.empty() && name.front() == u' ') {
        name.erase(0, 1);
      }
      fonts_[tableFont_] = Font{TextEncoding::utf8FromUtf16(name), tableFontEncoding_};
      tableText_.clear();
      tableUnits_.clear();
      return;
    }
    case Destination::ColorTable:
      if (tableEntryHasColor_) {
        colors_.push_back(Color{red_ / 255.0, green_ / 255.0, blue_ / 255.0, 1});
      } else {
        colors_.emplace_back();
      }
      tableEntryHasColor_ = false;
      red_ = green_ = blue_ = 0;
      return;
    case Destination::ExpandedColorTable: {
      std::optional<TableColor> entry;
      const std::vector<int>& c = tableComponents_;
      auto component = [&](std::size_t i) { return c[i] / 100000.0; };
      if (c.size() == 1 || c.size() == 2) {  // grey, grey and alpha
        entry = TableColor{Color{component(0), component(0), component(0), c.size() == 2 ? component(1) : 1},
                           c.size() == 2};
      } else if (c.size() >= 3) {
        entry = TableColor{Color{component(0), component(1), component(2), c.size() >= 4 ? component(3) : 1},
                           c.size() >= 4};
      }
      expandedColors_.push_back(entry);
      tableComponents_.clear();
      return;
    }
    case Destination::Text:
    case Destination::Skip:
      return;
  }
}

void RtfReader::resetCharacterAttributes() {
  GroupState& current = state();
  ParagraphStyle paragraph = std::move(current.attributes.paragraphStyle);
  current.attributes = TextAttributes{};
  current.attributes.paragraphStyle = std::move(paragraph);
  current.font = defaultFont_;
  current.colors = ColorReferences{};
  current.shadow = ShadowState{};
}

bool RtfReader::characterWord(std::string_view word, std::optional<int> parameter) {
  GroupState& current = state();
  TextAttributes& attributes = current.attributes;
  int value = parameter.value_or(0);
  bool on = parameter.value_or(1) != 0;
  auto underline = [&](int mask) { attributes.underlineStyle = on ? mask : TextStyleMask::None; };
  using namespace TextStyleMask;
  if (word == "plain") {
    resetCharacterAttributes();
  } else if (word == "f") {
    current.font = value;
  } else if (word == "fs") {
    attributes.font.pointSize = std::max(value, 0) / 2.0;
  } else if (word == "fsmilli") {
    attributes.font.pointSize = std::max(value, 0) / 1000.0;
  } else if (word == "b") {
    attributes.font.bold = on;
  } else if (word == "i") {
    attributes.font.italic = on;
  } else if (word == "ul" || word == "ulwave" || word == "ulhwave" || word == "ululdbwave") {
    underline(word == "ululdbwave" ? Double : Single);
  } else if (word == "ulth" || word == "ulthwave") {
    underline(Thick);
  } else if (word == "uldb") {
    underline(Double);
  } else if (word == "uld") {
    underline(Single | PatternDot);
  } else if (word == "uldash" || word == "ulldash") {
    underline(Single | PatternDash);
  } else if (word == "uldashd") {
    underline(Single | PatternDashDot);
  } else if (word == "uldashdd") {
    underline(Single | PatternDashDotDot);
  } else if (word == "ulthd") {
    underline(Thick | PatternDot);
  } else if (word == "ulthdash" || word == "ulthldash") {
    underline(Thick | PatternDash);
  } else if (word == "ulthdashd") {
    underline(Thick | PatternDashDot);
  } else if (word == "ulthdashdd") {
    underline(Thick | PatternDashDotDot);
  } else if (word == "ulw") {
    underline(Single | ByWord);
  } else if (word == "ulnone") {
    attributes.underlineStyle = None;
  } else if (word == "ulstyle") {
    attributes.underlineStyle = value;
  } else if (word == "ulc") {
    current.colors.underline = value;
  } else if (word == "strike") {
    attributes.strikethroughStyle = on ? Single : None;
  } else if (word == "striked") {
    attributes.strikethroughStyle = on ? Double : None;
  } else if (word == "strikestyle") {
    attributes.strikethroughStyle = value;
  } else if (word == "strikec") {
    current.colors.strikethrough = value;
  } else if (word == "cf") {
    current.colors.foreground = value;
  } else if (word == "cb" || word == "chcbpat" || word == "highlight") {
    current.colors.background = value;
  } else if (word == "expnd") {
    attributes.kerning = value / 4.0;
  } else if (word == "expndtw") {
    attributes.kerning = twips(value);
  } else if (word == "outl") {
    attributes.strokeWidth = on ? 3 : 0;
  } else if (word == "strokewidth") {
    attributes.strokeWidth = twips(value);
  } else if (word == "strokec") {
    current.colors.stroke = value;
  } else if (word == "shad") {
    current.shadow.enabled = on;
  } else if (word == "shadx") {
    current.shadow.offsetX = value;
  } else if (word == "shady") {
    current.shadow.offsetY = value;
  } else if (word == "shadr") {
    current.shadow.radius = std::max(value, 0);
  } else if (word == "shado") {
    current.shadow.opacity = std::clamp(value, 0, 255);
  } else if (word == "shadc") {
    current.colors.shadow = value;
  } else if (word == "up") {
    attributes.baselineOffset = value / 2.0;
  } else if (word == "dn") {
    attributes.baselineOffset = -value / 2.0;
  } else if (word == "nosupersub") {
    attributes.baselineOffset = 0;
  } else if (word == "obliqueness") {
    attributes.obliqueness = value / 2000.0;
  } else if (word == "expansion") {
    attributes.expansion = value / 2000.0;
  } else if (word == "CocoaLigature") {
    attributes.ligature = std::clamp(value, 0, 2);
  } else {
    return false;
  }
  return true;
}

bool RtfReader::paragraphWord(std::string_view word, std::optional<int> parameter) {
  GroupState& current = state();
  ParagraphStyle& paragraph = current.attributes.paragraphStyle;
  int value = parameter.value_or(0);
  if (word == "pard") {
    paragraph = ParagraphStyle{};
    current.lineSpacing = 0;
    current.nextTabAlignment = TextAlignment::Left;
  } else if (word == "ql") {
    paragraph.alignment = TextAlignment::Left;
  } else if (word == "qc") {
    paragraph.alignment = TextAlignment::Center;
  } else if (word == "qr") {
    paragraph.alignment = TextAlignment::Right;
  } else if (word == "qj") {
    paragraph.alignment = TextAlignment::Justified;
  } else if (word == "qnatural") {
    paragraph.alignment = TextAlignment::Natural;
  } else if (word == "sl") {
    current.lineSpacing = value;
    paragraph.minimumLineHeight = value > 0 ? twips(value) : twips(-value);
    paragraph.maximumLineHeight = value < 0 ? twips(-value) : 0;
    paragraph.lineHeightMultiple = 0;
  } else if (word == "slmult") {
    if (value == 1 && current.lineSpacing > 0) {
      paragraph.lineHeightMultiple = current.lineSpacing / 240.0;
      paragraph.minimumLineHeight = 0;
    }
  } else if (word == "slleading") {
    paragraph.lineSpacing = twips(value);
  } else if (word == "slminimum") {
    paragraph.minimumLineHeight = twips(value);
  } else if (word == "slmaximum") {
    paragraph.maximumLineHeight = twips(value);
  } else if (word == "sa") {
    paragraph.paragraphSpacing = twips(value);
  } else if (word == "sb") {
    paragraph.paragraphSpacingBefore = twips(value);
  } else if (word == "li") {
    paragraph.firstLineHeadIndent += twips(value) - paragraph.headIndent;
    paragraph.headIndent = twips(value);
  } else if (word == "fi") {
    paragraph.firstLineHeadIndent = paragraph.headIndent + twips(value);
  } else if (word == "ri") {
    paragraph.tailIndent = -twips(value);
  } else if (word == "pardeftab") {
    paragraph.defaultTabInterval = twips(value);
  } else if (word == "tqr") {
    current.nextTabAlignment = TextAlignment::Right;
  } else if (word == "tqc") {
    current.nextTabAlignment = TextAlignment::Center;
  } else if (word == "tx") {
    paragraph.tabStops.push_back(TabStop{twips(value), current.nextTabAlignment});
    current.nextTabAlignment = TextAlignment::Left;
  } else {
    return false;
  }
  return true;
}

bool RtfReader::specialCharacterWord(std::string_view word) {
  for (const SymbolWord& symbol : kSymbolWords) {
    if (symbol.word == word) {
      appendUnit(symbol.unit);
      return true;
    }
  }
  return false;
}

void RtfReader::controlSymbol(std::optional<char16_t> unit) {
  if (skipFallback_ > 0) {
    --skipFallback_;
  } else if (unit) {
    appendUnit(*unit);
  }
}

void RtfReader::textByte(char byte, bool escaped) {
  if (groups_.empty()) {
    return;
  }
  if (skipFallback_ > 0) {
    --skipFallback_;
    return;
  }
  switch (state().destination) {
    case Destination::Text:
      pendingBytes_.push_back(byte);
      return;
    case Destination::FontTable:
      if (byte == ';' && !escaped) {
        commitTableEntry();
      } else {
        tableText_.push_back(byte);
      }
      return;
    case Destination::ColorTable:
    case Destination::ExpandedColorTable:
      if (byte == ';' && !escaped) {
        commitTableEntry();
      }
      return;
    case Destination::Skip:
      return;
  }
}

void RtfReader::appendUnit(char16_t unit) {
  if (groups_.empty() || state().destination != Destination::Text) {
    return;
  }
  flushText();
  result_.text.append(std::u16string_view(&unit, 1), effectiveAttributes());
}

void RtfReader::flushText() {
  if (pendingBytes_.empty()) {
    return;
  }
  std::u16string text = textEncoding().decode(pendingBytes_);
  pendingBytes_.clear();
  if (!groups_.empty()) {
    result_.text.append(text, effectiveAttributes());
  }
}

const TextEncoding& RtfReader::textEncoding() const {
  auto font = fonts_.find(groups_.empty() ? defaultFont_ : groups_.back().font);
  if (font != fonts_.end() && font->second.encoding) {
    return *font->second.encoding;
  }
  return documentEncoding_;
}

std::optional<RtfReader::TableColor> RtfReader::tableColor(int index) const {
  if (index < 0) {
    return std::nullopt;
  }
  auto i = static_cast<std::size_t>(index);
  if (i < expandedColors_.size() && expandedColors_[i]) {
    return expandedColors_[i];
  }
  if (i < colors_.size() && colors_[i]) {
    return TableColor{*colors_[i], false};
  }
  return std::nullopt;
}

TextAttributes RtfReader::effectiveAttributes() const {
  const GroupState& current = groups_.back();
  TextAttributes attributes = current.attributes;
  auto font = fonts_.find(current.font >= 0 ? current.font : defaultFont_);
  if (font != fonts_.end() && !font->second.name.empty()) {
    attributes.font.family = font->second.name;
  }
  auto color = [this](int index) -> std::optional<Color> {
    auto entry = tableColor(index);
    return entry ? std::optional<Color>(entry->color) : std::nullopt;
  };
  attributes.foregroundColor = color(current.colors.foreground).value_or(Color{0, 0, 0, 1});
  attributes.backgroundColor = color(current.colors.background);
  attributes.underlineColor = color(current.colors.underline);
  attributes.strikethroughColor = color(current.colors.strikethrough);
  attributes.strokeColor = color(current.colors.stroke);
  if (current.shadow.enabled) {
    TextShadow shadow;
    shadow.offsetX = twips(current.shadow.offsetX);
    shadow.offsetY = twips(current.shadow.offsetY);
    shadow.blurRadius = twips(current.shadow.radius);
    auto entry = tableColor(current.colors.shadow);
    if (entry) {
      shadow.color = entry->color;
    }
    if (current.shadow.opacity >= 0 && !(entry && entry->explicitAlpha)) {
      shadow.color.alpha = current.shadow.opacity / 255.0;
    }
    attributes.shadow = shadow;
  }
  return attributes;
}

}  // namespace qva
