#pragma once

#include <CLI/CLI.hpp>

namespace qva {

// `qva describe CLASS [--json]`: a patch class's title, description, modes, ports and settings keys.
void addDescribeCommand(CLI::App& app);

}  // namespace qva
