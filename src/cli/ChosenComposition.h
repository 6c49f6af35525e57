#pragma once

#include <optional>
#include <string>
#include <utility>

#include "host/Composition.h"

namespace qva {

// The composition a command runs: the file named, or the built-in demo without one.
struct ChosenComposition {
  Composition composition;
  // Where the composition lies: its file, or for the built-in demo the examples that ship in the data
  // folder, whose companion files (the ticker's headlines) it reads; none without a data folder.
  std::optional<std::string> location;

  // Throws CompositionError for a file that cannot be used.
  static ChosenComposition open(const std::string& path);
};

// WIDTHxHEIGHT as given to --size; throws CommandError for anything else.
std::pair<int, int> parseCanvasSize(const std::string& text);

}  // namespace qva
