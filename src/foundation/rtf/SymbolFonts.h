#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qva {

// Fonts whose text is not in any character set: each byte names a glyph of the font. Word processors
// declare them with the symbol charset (\fcharset2) and write a symbol as its byte, or as the
// private-use character U+F000 + byte that Windows gives symbol fonts.
class SymbolFonts {
 public:
  enum class Kind {
    // The Symbol font: bytes and their private-use characters follow the Symbol encoding (Greek
    // letters, mathematical signs, arrows, the bullet at 0xB7).
    Symbol,
    // Another symbol-charset font (Wingdings and the like): its symbols stay private-use characters.
    OtherSymbol,
    // LibreOffice's OpenSymbol, whatever charset it is declared with: its private-use characters are
    // the dingbats LibreOffice draws list bullets with, and read as the bullet "•".
    OpenSymbol,
  };

  // The kind of a font table entry, from its name and \fcharset; none for a font with a character set.
  static std::optional<Kind> kindOf(std::string_view fontName, std::optional<int> charset);

  // Bytes of text in such a font as UTF-16.
  static std::u16string decode(Kind kind, std::string_view bytes);
  // A character given by code point (\u) in such a font, its private-use symbols mapped.
  static char16_t mapCharacter(Kind kind, char16_t character);
};

}  // namespace qva
