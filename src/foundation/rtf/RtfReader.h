#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/rtf/SymbolFonts.h"
#include "foundation/text/AttributedString.h"
#include "foundation/text/TextEncoding.h"

namespace qva {

// Reads an RTF document into attributed text: standard RTF as word processors write it and the
// platform text system's dialect (twips for its own dimensions). Reading never recurses and never reads
// past the input; a document that does not start with "{\rtf", whose groups do not balance, or that
// ends inside \bin data sets the error flag and keeps the text read so far.
class RtfReader {
 public:
  struct Result {
    AttributedString text;
    bool error = false;
    std::string message;
  };

  static Result read(std::string_view document);

 private:
  enum class Destination { Text, FontTable, ColorTable, ExpandedColorTable, Skip };

  struct ColorReferences {
    int foreground = -1;
    int background = -1;
    int underline = -1;
    int strikethrough = -1;
    int stroke = -1;
    int shadow = -1;
  };

  struct ShadowState {
    bool enabled = false;
    int offsetX = 3;
    int offsetY = -3;
    int radius = 0;
    int opacity = -1;
  };

  struct GroupState {
    Destination destination = Destination::Text;
    TextAttributes attributes;
    int font = -1;
    ColorReferences colors;
    ShadowState shadow;
    int unicodeSkip = 1;
    int lineSpacing = 0;
    // The kind of the tab stop that the next \tx places.
    TabStop nextTab;
    // Hidden text (\v) is not part of the text read.
    bool hidden = false;
  };

  struct Font {
    std::string name;
    std::optional<TextEncoding> encoding;
    // Set for fonts whose bytes name glyphs rather than characters.
    std::optional<SymbolFonts::Kind> symbol;
  };

  struct TableColor {
    Color color;
    bool explicitAlpha = false;
  };

  explicit RtfReader(std::string_view document);

  void run();
  void fail(std::string message);
  void openGroup();
  void closeGroup();
  void readControl();
  void controlWord(std::string_view word, std::optional<int> parameter);
  bool destinationWord(std::string_view word);
  // Character and paragraph formatting; false for a word that is neither.
  bool textWord(std::string_view word, std::optional<int> parameter);
  bool specialCharacterWord(std::string_view word);
  // A control symbol: its character, or none for one without text.
  void controlSymbol(std::optional<char16_t> unit);
  void tableWord(std::string_view word, std::optional<int> parameter);
  // A byte of text; an escaped one (\'hh, \{) never ends a table entry.
  void textByte(char byte, bool escaped);
  void appendUnit(char16_t unit);
  // A character given by code point (\u), as the current font shows it.
  void appendCodePoint(int parameter);
  void flushText();
  void commitTableEntry();
  void resetCharacterAttributes();
  // The attributes text gets in the current state: fonts and colours looked up in their tables.
  void updateAttributes(TextAttributes& attributes) const;
  // updateAttributes(), kept until a control word, group or table entry may change it.
  const TextAttributes& currentAttributes();
  std::optional<TableColor> tableColor(int index) const;
  const Font* currentFont() const;
  const TextEncoding& textEncoding() const;

  GroupState& state() { return groups_.back(); }

  std::string_view input_;
  std::size_t position_ = 0;
  Result result_;
  bool finished_ = false;
  std::vector<GroupState> groups_;
  bool ignorableDestination_ = false;
  int skipFallback_ = 0;
  TextEncoding documentEncoding_ = TextEncoding::windowsLatin1();
  int defaultFont_ = -1;
  std::map<int, Font> fonts_;
  std::vector<std::optional<Color>> colors_;
  std::vector<std::optional<TableColor>> expandedColors_;
  // The table entry being read: font number, name bytes, colour components.
  int tableFont_ = 0;
  std::optional<TextEncoding> tableFontEncoding_;
  std::optional<int> tableFontCharset_;
  std::string tableText_;
  std::u16string tableUnits_;
  std::vector<int> tableComponents_;
  bool tableEntryHasColor_ = false;
  int red_ = 0;
  int green_ = 0;
  int blue_ = 0;
  // Text bytes not yet decoded; all of them carry the current state's attributes.
  std::string pendingBytes_;
  TextAttributes currentAttributes_;
  bool attributesChanged_ = true;
  // The number the last footnote reference (\chftn) showed.
  int footnoteNumber_ = 0;
};

}  // namespace qva
