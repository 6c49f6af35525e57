// Every fuzz target resolves font names with the project's font configuration, as the command and the
// tests do: results then repeat on every machine, and the system configuration's parser (whose one-time
// allocations the leak checker would report at exit) never runs.
#include <cstdlib>

namespace {

const bool kProjectFonts = setenv("FONTCONFIG_FILE", QVA_FONTS_CONF, 0) == 0;

}  // namespace
