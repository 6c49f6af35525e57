#include "cli/ChosenComposition.h"

#include <cstdio>

#include "cli/CommandError.h"
#include "cli/DemoComposition.h"
#include "foundation/files/InstalledData.h"

namespace qva {

namespace {

// The largest canvas side accepted on the command line.
constexpr int kMaxSide = 16384;

}  // namespace

ChosenComposition ChosenComposition::open(const std::string& path) {
  if (!path.empty()) {
    return {Composition::load(path), path};
  }
  std::optional<std::string> location;
  if (const auto data = installedDataFolder()) {
    location = (*data / "examples" / "demo.qvc").string();
  }
  return {Composition::parse(demoCompositionText(), location.value_or("demo.qvc")), location};
}

std::pair<int, int> parseCanvasSize(const std::string& text) {
  int width = 0;
  int height = 0;
  char extra = 0;
  if (std::sscanf(text.c_str(), "%dx%d%c", &width, &height, &extra) != 2 || width < 1 || height < 1 ||
      width > kMaxSide || height > kMaxSide) {
    throw CommandError("--size takes WIDTHxHEIGHT with sides from 1 to 16384, not \"" + text + "\"");
  }
  return {width, height};
}

}  // namespace qva
