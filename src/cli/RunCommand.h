#pragma once

#include <CLI/CLI.hpp>

namespace qva {

// `qva run COMPOSITION --frames N --fps F [--set NAME=VALUE] [--print ID.PORT ...]`: evaluates a
// composition frame by frame and prints port values, one JSON object per frame.
void addRunCommand(CLI::App& app);

}  // namespace qva
