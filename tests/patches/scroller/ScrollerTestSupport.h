#pragma once

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "foundation/image/Bitmap.h"
#include "foundation/image/PngWriter.h"
#include "framework/Structure.h"
#include "patches/scroller/TextScrollerPlugIn.h"
#include "support/PatchDriver.h"

namespace qva {

// The project's font configuration, also when the executable runs outside CTest.
inline const bool kProjectFonts = setenv("FONTCONFIG_FILE", QVA_SOURCE_DIR "/data/fonts/fonts.conf", 0) == 0;

inline Value stringArray(const std::vector<std::string>& strings) {
  std::vector<Value> values(strings.begin(), strings.end());
  return Value(Structure::makeArray(std::move(values)));
}

inline TextScrollerPlugIn& scrollerOf(PatchDriver& driver) {
  return static_cast<TextScrollerPlugIn&>(driver.patch());
}

// The pieces of the strip as text; an image piece reads "[image W]" and an empty piece "".
inline std::vector<std::string> pieceTexts(PatchDriver& driver) {
  std::vector<std::string> texts;
  for (const auto& piece : scrollerOf(driver).strings()) {
    if (piece->image()) {
      texts.push_back("[image " + std::to_string(piece->image()->width()) + "]");
    } else {
      texts.push_back(piece->string() ? piece->string()->utf8() : "");
    }
  }
  return texts;
}

// Writes a picture of width × height: opaque red in its first inkWidth columns, transparent elsewhere.
inline std::string writeBlock(const std::string& path, int width, int height, int inkWidth) {
  auto bitmap = Bitmap::allocate(width, height, Bitmap::paddedRowBytes(width));
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < inkWidth; ++x) {
      bitmap->row(y)[x * 4 + 2] = 255;
      bitmap->row(y)[x * 4 + 3] = 255;
    }
  }
  const std::string error = PngWriter::write(bitmap->view(), path);
  return error.empty() ? path : error;
}

}  // namespace qva
