#include "foundation/rtf/SymbolFonts.h"

#include <array>

#include "framework/StringCase.h"

namespace qva {

namespace {

constexpr char16_t kUndefined = 0xFFFD;
constexpr char16_t kBullet = 0x2022;
// Windows shows the glyphs of symbol fonts at U+F000 + byte.
constexpr char16_t kSymbolPrivateUseBase = 0xF000;

// The Symbol encoding from 0x20 to 0xFF; 0x00-0x1F are the control characters. Adobe's own private-use
// pieces (the radical extender, arrow extenders) are given their Unicode counterparts.
// clang-format off
constexpr std::array<char16_t, 224> kSymbolEncoding{{
    // 0x20
    0x0020, 0x0021, 0x2200, 0x0023, 0x2203, 0x0025, 0x0026, 0x220B,
    0x0028, 0x0029, 0x2217, 0x002B, 0x002C, 0x2212, 0x002E, 0x002F,
    // 0x30
    0x0030, 0x0031, 0x0032, 0x0033, 0x0034, 0x0035, 0x0036, 0x0037,
    0x0038, 0x0039, 0x003A, 0x003B, 0x003C, 0x003D, 0x003E, 0x003F,
    // 0x40
    0x2245, 0x0391, 0x0392, 0x03A7, 0x0394, 0x0395, 0x03A6, 0x0393,
    0x0397, 0x0399, 0x03D1, 0x039A, 0x039B, 0x039C, 0x039D, 0x039F,
    // 0x50
    0x03A0, 0x0398, 0x03A1, 0x03A3, 0x03A4, 0x03A5, 0x03C2, 0x03A9,
    0x039E, 0x03A8, 0x0396, 0x005B, 0x2234, 0x005D, 0x22A5, 0x005F,
    // 0x60
    0x203E, 0x03B1, 0x03B2, 0x03C7, 0x03B4, 0x03B5, 0x03C6, 0x03B3,
    0x03B7, 0x03B9, 0x03D5, 0x03BA, 0x03BB, 0x03BC, 0x03BD, 0x03BF,
    // 0x70
    0x03C0, 0x03B8, 0x03C1, 0x03C3, 0x03C4, 0x03C5, 0x03D6, 0x03C9,
    0x03BE, 0x03C8, 0x03B6, 0x007B, 0x007C, 0x007D, 0x223C, kUndefined,
    // 0x80
    kUndefined, kUndefined, kUndefined, kUndefined, kUndefined, kUndefined, kUndefined, kUndefined,
    kUndefined, kUndefined, kUndefined, kUndefined, kUndefined, kUndefined, kUndefined, kUndefined,
    // 0x90
    kUndefined, kUndefined, kUndefined, kUndefined, kUndefined, kUndefined, kUndefined, kUndefined,
    kUndefined, kUndefined, kUndefined, kUndefined, kUndefined, kUndefined, kUndefined, kUndefined,
    // 0xA0
    0x20AC, 0x03D2, 0x2032, 0x2264, 0x2044, 0x221E, 0x0192, 0x2663,
    0x2666, 0x2665, 0x2660, 0x2194, 0x2190, 0x2191, 0x2192, 0x2193,
    // 0xB0
    0x00B0, 0x00B1, 0x2033, 0x2265, 0x00D7, 0x221D, 0x2202, 0x2022,
    0x00F7, 0x2260, 0x2261, 0x2248, 0x2026, 0x23D0, 0x23AF, 0x21B5,
    // 0xC0
    0x2135, 0x2111, 0x211C, 0x2118, 0x2297, 0x2295, 0x2205, 0x2229,
    0x222A, 0x2283, 0x2287, 0x2284, 0x2282, 0x2286, 0x2208, 0x2209,
    // 0xD0
    0x2220, 0x2207, 0x00AE, 0x00A9, 0x2122, 0x220F, 0x221A, 0x22C5,
    0x00AC, 0x2227, 0x2228, 0x21D4, 0x21D0, 0x21D1, 0x21D2, 0x21D3,
    // 0xE0
    0x25CA, 0x2329, 0x00AE, 0x00A9, 0x2122, 0x2211, 0x239B, 0x239C,
    0x239D, 0x23A1, 0x23A2, 0x23A3, 0x23A7, 0x23A8, 0x23A9, 0x23AA,
    // 0xF0
    kUndefined, 0x232A, 0x222B, 0x2320, 0x23AE, 0x2321, 0x239E, 0x239F,
    0x23A0, 0x23A4, 0x23A5, 0x23A6, 0x23AB, 0x23AC, 0x23AD, kUndefined,
}};
// clang-format on

constexpr int kSymbolCharset = 2;

bool isPrivateUse(char16_t character) {
  return character >= 0xE000 && character <= 0xF8FF;
}

// A byte of a symbol font's text: control characters stay, the rest names a glyph.
char16_t symbolByte(SymbolFonts::Kind kind, unsigned char byte) {
  if (byte < 0x20) {
    return byte;
  }
  switch (kind) {
    case SymbolFonts::Kind::Symbol:
      return kSymbolEncoding[byte - 0x20];
    case SymbolFonts::Kind::OtherSymbol:
      return static_cast<char16_t>(kSymbolPrivateUseBase + byte);
    case SymbolFonts::Kind::OpenSymbol:
      // LibreOffice writes a bullet's private-use character as its low byte; the rest is ASCII.
      return byte < 0x80 ? char16_t{byte} : kBullet;
  }
  return kUndefined;
}

}  // namespace

std::optional<SymbolFonts::Kind> SymbolFonts::kindOf(std::string_view fontName, std::optional<int> charset) {
  const std::string name = asciiLowercased(fontName);
  if (name == "opensymbol" || name == "starsymbol") {
    return Kind::OpenSymbol;
  }
  if (charset != kSymbolCharset) {
    return std::nullopt;
  }
  return name == "symbol" ? Kind::Symbol : Kind::OtherSymbol;
}

std::u16string SymbolFonts::decode(Kind kind, std::string_view bytes) {
  std::u16string text;
  text.reserve(bytes.size());
  for (char byte : bytes) {
    text.push_back(symbolByte(kind, static_cast<unsigned char>(byte)));
  }
  return text;
}

char16_t SymbolFonts::mapCharacter(Kind kind, char16_t character) {
  switch (kind) {
    case Kind::Symbol:
      // The private-use form Windows gives the font's glyphs.
      if (character >= kSymbolPrivateUseBase + 0x20 && character <= kSymbolPrivateUseBase + 0xFF) {
        return symbolByte(kind, static_cast<unsigned char>(character - kSymbolPrivateUseBase));
      }
      return character;
    case Kind::OtherSymbol:
      return character;
    case Kind::OpenSymbol:
      return isPrivateUse(character) ? kBullet : character;
  }
  return character;
}

}  // namespace qva
