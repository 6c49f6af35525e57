#pragma once

#include <CLI/CLI.hpp>

namespace qva {

// `qva list`: every patch class with its title.
void addListCommand(CLI::App& app);

}  // namespace qva
