#pragma once

#include <CLI/CLI.hpp>

namespace qva {

// `qva drive SCRIPT|- [--images DIR]`: plays a script of host calls against one patch.
void addDriveCommand(CLI::App& app);

}  // namespace qva
