#include "foundation/rtf/RtfReader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace qva {

namespace {

// Deep enough for any real document, bounded so that hostile input cannot exhaust memory.
constexpr std::size_t kMaxGroupDepth = 50000;
constexpr std::size_t kMaxWordLength = 32;
constexpr int64_t kParameterLimit = 2147483647;
// The largest font size word processors offer, in points, and the widest page, in twips (22 inches):
// sizes and distances beyond them are clamped so that absurd parameters cannot blow up a layout.
constexpr double kMaxPointSize = 1638;
constexpr int kMaxTwips = 31680;

bool isLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

double twips(int value) {
  return std::clamp(value, -kMaxTwips, kMaxTwips) / 20.0;
}

// A length in points from a parameter counted in 1/unitsPerPoint of a point.
double points(int value, double unitsPerPoint) {
  return std::clamp(value / unitsPerPoint, -kMaxPointSize, kMaxPointSize);
}

// \u's parameter: a UTF-16 unit as a signed or unsigned 16-bit number; anything else is no character.
char16_t unicodeUnit(int value) {
  if (value < -32768 || value > 65535) {
    return 0xFFFD;
  }
  return static_cast<char16_t>(static_cast<uint16_t>(value));
}

// Bytes that end a run of plain text.
bool isSpecialByte(char c) {
  return c == '\\' || c == '{' || c == '}' || c == '\r' || c == '\n' || c == '\0';
}

// Destinations whose content is never text.
bool isSkippedDestination(std::string_view word) {
  static const std::unordered_set<std::string_view> kSkipped{"annotation",   "atnauthor",
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
  return kSkipped.count(word) != 0;
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
        if (skipFallback_ == 0 && !groups_.empty() && state().destination == Destination::Text) {
          // A run of plain text goes to the pending bytes at once.
          std::size_t end = position_;
          while (end < input_.size() && !isSpecialByte(input_[end])) {
            ++end;
          }
          pendingBytes_.append(input_.data() + position_ - 1, end - position_ + 1);
          position_ = end;
        } else {
          textByte(c, false);
        }
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
  attributesChanged_ = true;
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
  attributesChanged_ = true;
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
        const char* digits = input_.data() + position_;
        position_ += 2;
        unsigned byte = 0;
        // Both characters must be hex digits.
        if (std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
          textByte(static_cast<char>(byte), true);
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
  attributesChanged_ = true;
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
  if (textWord(word, parameter) || specialCharacterWord(word)) {
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
    appendCodePoint(value);
    skipFallback_ = state().unicodeSkip;
  } else if (word == "chftn") {
    // An automatic footnote reference; the footnote's own copy of it is in a skipped destination.
    for (char digit : std::to_string(++footnoteNumber_)) {
      appendUnit(static_cast<char16_t>(digit));
    }
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
        tableFontCharset_.reset();
      } else if (word == "fcharset") {
        tableFontEncoding_ = TextEncoding::fromCharset(value);
        tableFontCharset_ = value;
      } else if (word == "cpg") {
        if (auto encoding = TextEncoding::fromCodePage(value)) {
          tableFontEncoding_ = encoding;
        }
      } else if (word == "u") {
        tableUnits_ += TextEncoding::utf16FromUtf8(tableText_);
        tableText_.clear();
        tableUnits_.push_back(unicodeUnit(value));
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
  attributesChanged_ = true;
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
      std::string utf8Name = TextEncoding::utf8FromUtf16(name);
      const std::optional<SymbolFonts::Kind> symbol = SymbolFonts::kindOf(utf8Name, tableFontCharset_);
      fonts_[tableFont_] = Font{std::move(utf8Name), tableFontEncoding_, symbol};
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
  current.hidden = false;
}

bool RtfReader::textWord(std::string_view word, std::optional<int> parameter) {
  struct Word {
    int value;
    bool on;
  };
  using Handler = void (*)(RtfReader&, GroupState&, Word);
  using namespace TextStyleMask;
  static const auto underline = [](GroupState& s, Word w, int mask) {
    s.attributes.underlineStyle = w.on ? mask : None;
  };
  // One table for the character and paragraph formatting words, looked up once per word.
  static const std::unordered_map<std::string_view, Handler> kHandlers{
      {"plain", [](RtfReader& r, GroupState&, Word) { r.resetCharacterAttributes(); }},
      {"f", [](RtfReader&, GroupState& s, Word w) { s.font = w.value; }},
      {"fs", [](RtfReader&, GroupState& s,
                Word w) { s.attributes.font.pointSize = std::max(points(w.value, 2), 0.0); }},
      {"fsmilli", [](RtfReader&, GroupState& s,
                     Word w) { s.attributes.font.pointSize = std::max(points(w.value, 1000), 0.0); }},
      {"b", [](RtfReader&, GroupState& s, Word w) { s.attributes.font.bold = w.on; }},
      {"i", [](RtfReader&, GroupState& s, Word w) { s.attributes.font.italic = w.on; }},
      {"ul", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Single); }},
      {"ulwave", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Single); }},
      {"ulhwave", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Single); }},
      {"ululdbwave", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Double); }},
      {"ulth", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Thick); }},
      {"ulthwave", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Thick); }},
      {"uldb", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Double); }},
      {"uld", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Single | PatternDot); }},
      {"uldash", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Single | PatternDash); }},
      {"ulldash", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Single | PatternDash); }},
      {"uldashd", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Single | PatternDashDot); }},
      {"uldashdd", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Single | PatternDashDotDot); }},
      {"ulthd", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Thick | PatternDot); }},
      {"ulthdash", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Thick | PatternDash); }},
      {"ulthldash", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Thick | PatternDash); }},
      {"ulthdashd", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Thick | PatternDashDot); }},
      {"ulthdashdd", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Thick | PatternDashDotDot); }},
      {"ulw", [](RtfReader&, GroupState& s, Word w) { underline(s, w, Single | ByWord); }},
      {"ulnone", [](RtfReader&, GroupState& s, Word) { s.attributes.underlineStyle = None; }},
      {"ulstyle", [](RtfReader&, GroupState& s, Word w) { s.attributes.underlineStyle = w.value; }},
      {"ulc", [](RtfReader&, GroupState& s, Word w) { s.colors.underline = w.value; }},
      {"strike",
       [](RtfReader&, GroupState& s, Word w) { s.attributes.strikethroughStyle = w.on ? Single : None; }},
      {"striked",
       [](RtfReader&, GroupState& s, Word w) { s.attributes.strikethroughStyle = w.on ? Double : None; }},
      {"strikestyle", [](RtfReader&, GroupState& s, Word w) { s.attributes.strikethroughStyle = w.value; }},
      {"strikec", [](RtfReader&, GroupState& s, Word w) { s.colors.strikethrough = w.value; }},
      {"cf", [](RtfReader&, GroupState& s, Word w) { s.colors.foreground = w.value; }},
      {"cb", [](RtfReader&, GroupState& s, Word w) { s.colors.background = w.value; }},
      {"chcbpat", [](RtfReader&, GroupState& s, Word w) { s.colors.background = w.value; }},
      {"highlight", [](RtfReader&, GroupState& s, Word w) { s.colors.background = w.value; }},
      {"expnd", [](RtfReader&, GroupState& s, Word w) { s.attributes.kerning = points(w.value, 4); }},
      {"expndtw", [](RtfReader&, GroupState& s, Word w) { s.attributes.kerning = twips(w.value); }},
      {"outl", [](RtfReader&, GroupState& s, Word w) { s.attributes.strokeWidth = w.on ? 3 : 0; }},
      {"strokewidth", [](RtfReader&, GroupState& s, Word w) { s.attributes.strokeWidth = twips(w.value); }},
      {"strokec", [](RtfReader&, GroupState& s, Word w) { s.colors.stroke = w.value; }},
      {"shad", [](RtfReader&, GroupState& s, Word w) { s.shadow.enabled = w.on; }},
      {"shadx", [](RtfReader&, GroupState& s, Word w) { s.shadow.offsetX = w.value; }},
      {"shady", [](RtfReader&, GroupState& s, Word w) { s.shadow.offsetY = w.value; }},
      {"shadr",
       [](RtfReader&, GroupState& s, Word w) { s.shadow.radius = std::clamp(w.value, 0, kMaxTwips); }},
      {"shado", [](RtfReader&, GroupState& s, Word w) { s.shadow.opacity = std::clamp(w.value, 0, 255); }},
      {"shadc", [](RtfReader&, GroupState& s, Word w) { s.colors.shadow = w.value; }},
      {"up", [](RtfReader&, GroupState& s, Word w) { s.attributes.baselineOffset = points(w.value, 2); }},
      {"dn", [](RtfReader&, GroupState& s, Word w) { s.attributes.baselineOffset = -points(w.value, 2); }},
      {"super", [](RtfReader&, GroupState& s, Word w) { s.attributes.superscript = w.on ? 1 : 0; }},
      {"sub", [](RtfReader&, GroupState& s, Word w) { s.attributes.superscript = w.on ? -1 : 0; }},
      {"nosupersub",
       [](RtfReader&, GroupState& s, Word) {
         s.attributes.superscript = 0;
         s.attributes.baselineOffset = 0;
       }},
      {"v", [](RtfReader&, GroupState& s, Word w) { s.hidden = w.on; }},
      {"obliqueness", [](RtfReader&, GroupState& s, Word w) { s.attributes.obliqueness = w.value / 2000.0; }},
      {"expansion", [](RtfReader&, GroupState& s, Word w) { s.attributes.expansion = w.value / 2000.0; }},
      {"CocoaLigature",
       [](RtfReader&, GroupState& s, Word w) { s.attributes.ligature = std::clamp(w.value, 0, 2); }},
      {"pard",
       [](RtfReader&, GroupState& s, Word) {
         s.attributes.paragraphStyle = ParagraphStyle{};
         s.lineSpacing = 0;
         s.nextTab = TabStop{};
       }},
      {"ql",
       [](RtfReader&, GroupState& s, Word) { s.attributes.paragraphStyle.alignment = TextAlignment::Left; }},
      {"qc", [](RtfReader&, GroupState& s,
                Word) { s.attributes.paragraphStyle.alignment = TextAlignment::Center; }},
      {"qr",
       [](RtfReader&, GroupState& s, Word) { s.attributes.paragraphStyle.alignment = TextAlignment::Right; }},
      {"qj", [](RtfReader&, GroupState& s,
                Word) { s.attributes.paragraphStyle.alignment = TextAlignment::Justified; }},
      {"qnatural", [](RtfReader&, GroupState& s,
                      Word) { s.attributes.paragraphStyle.alignment = TextAlignment::Natural; }},
      {"sl",
       [](RtfReader&, GroupState& s, Word w) {
         ParagraphStyle& p = s.attributes.paragraphStyle;
         s.lineSpacing = w.value;
         p.minimumLineHeight = twips(w.value > 0 ? w.value : -w.value);
         p.maximumLineHeight = w.value < 0 ? twips(-w.value) : 0;
         p.lineHeightMultiple = 0;
       }},
      {"slmult",
       [](RtfReader&, GroupState& s, Word w) {
         if (w.value == 1 && s.lineSpacing > 0) {
           s.attributes.paragraphStyle.lineHeightMultiple = s.lineSpacing / 240.0;
           s.attributes.paragraphStyle.minimumLineHeight = 0;
         }
       }},
      {"slleading",
       [](RtfReader&, GroupState& s, Word w) { s.attributes.paragraphStyle.lineSpacing = twips(w.value); }},
      {"slminimum", [](RtfReader&, GroupState& s,
                       Word w) { s.attributes.paragraphStyle.minimumLineHeight = twips(w.value); }},
      {"slmaximum", [](RtfReader&, GroupState& s,
                       Word w) { s.attributes.paragraphStyle.maximumLineHeight = twips(w.value); }},
      {"sa", [](RtfReader&, GroupState& s,
                Word w) { s.attributes.paragraphStyle.paragraphSpacing = twips(w.value); }},
      {"sb", [](RtfReader&, GroupState& s,
                Word w) { s.attributes.paragraphStyle.paragraphSpacingBefore = twips(w.value); }},
      {"li",
       [](RtfReader&, GroupState& s, Word w) {
         ParagraphStyle& p = s.attributes.paragraphStyle;
         p.firstLineHeadIndent += twips(w.value) - p.headIndent;
         p.headIndent = twips(w.value);
       }},
      {"fi",
       [](RtfReader&, GroupState& s, Word w) {
         ParagraphStyle& p = s.attributes.paragraphStyle;
         p.firstLineHeadIndent = p.headIndent + twips(w.value);
       }},
      {"ri",
       [](RtfReader&, GroupState& s, Word w) { s.attributes.paragraphStyle.tailIndent = -twips(w.value); }},
      {"pardeftab", [](RtfReader&, GroupState& s,
                       Word w) { s.attributes.paragraphStyle.defaultTabInterval = twips(w.value); }},
      {"tqr",
       [](RtfReader&, GroupState& s, Word) {
         s.nextTab = TabStop{0, TextAlignment::Right};
       }},
      {"tqc",
       [](RtfReader&, GroupState& s, Word) {
         s.nextTab = TabStop{0, TextAlignment::Center};
       }},
      {"tqdec",
       [](RtfReader&, GroupState& s, Word) {
         s.nextTab = TabStop{0, TextAlignment::Right, true};
       }},
      {"tx",
       [](RtfReader&, GroupState& s, Word w) {
         s.nextTab.location = twips(w.value);
         s.attributes.paragraphStyle.tabStops.push_back(s.nextTab);
         s.nextTab = TabStop{};
       }},
      // This system's own word (other readers skip it): the paragraph's line break mode, numbered as
      // LineBreakMode.
      {"qvalinebreakmode",
       [](RtfReader&, GroupState& s, Word w) {
         if (w.value >= static_cast<int>(LineBreakMode::WordWrap) &&
             w.value <= static_cast<int>(LineBreakMode::TruncateMiddle)) {
           s.attributes.paragraphStyle.lineBreakMode = static_cast<LineBreakMode>(w.value);
         }
       }},
  };
  auto handler = kHandlers.find(word);
  if (handler == kHandlers.end()) {
    return false;
  }
  handler->second(*this, state(), Word{parameter.value_or(0), parameter.value_or(1) != 0});
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
  if (groups_.empty() || state().destination != Destination::Text || state().hidden) {
    return;
  }
  flushText();
  result_.text.append(std::u16string_view(&unit, 1), currentAttributes());
}

void RtfReader::appendCodePoint(int parameter) {
  const char16_t unit = unicodeUnit(parameter);
  const Font* font = currentFont();
  appendUnit(font != nullptr && font->symbol ? SymbolFonts::mapCharacter(*font->symbol, unit) : unit);
}

void RtfReader::flushText() {
  if (pendingBytes_.empty()) {
    return;
  }
  if (!groups_.empty() && state().hidden) {
    pendingBytes_.clear();
    return;
  }
  const Font* font = currentFont();
  std::u16string text = font != nullptr && font->symbol ? SymbolFonts::decode(*font->symbol, pendingBytes_)
                                                        : textEncoding().decode(pendingBytes_);
  pendingBytes_.clear();
  if (!groups_.empty()) {
    result_.text.append(text, currentAttributes());
  }
}

const RtfReader::Font* RtfReader::currentFont() const {
  const int number = groups_.empty() || groups_.back().font < 0 ? defaultFont_ : groups_.back().font;
  auto font = fonts_.find(number);
  return font != fonts_.end() ? &font->second : nullptr;
}

const TextEncoding& RtfReader::textEncoding() const {
  const Font* font = currentFont();
  return font != nullptr && font->encoding ? *font->encoding : documentEncoding_;
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

const TextAttributes& RtfReader::currentAttributes() {
  if (attributesChanged_) {
    // Assigning into the kept set reuses its buffers.
    updateAttributes(currentAttributes_);
    attributesChanged_ = false;
  }
  return currentAttributes_;
}

void RtfReader::updateAttributes(TextAttributes& attributes) const {
  const GroupState& current = groups_.back();
  attributes = current.attributes;
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
}

}  // namespace qva
