#pragma once

#include <cstdlib>

namespace qva {

// Benchmarks that draw text use the project's font configuration, as the tests do, unless FONTCONFIG_FILE
// names another: the figures then do not depend on the fonts a machine happens to have.
inline const bool kProjectFonts = setenv("FONTCONFIG_FILE", QVA_SOURCE_DIR "/data/fonts/fonts.conf", 0) == 0;

}  // namespace qva
