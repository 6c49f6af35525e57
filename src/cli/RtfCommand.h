#pragma once

#include <CLI/CLI.hpp>

namespace qva {

// `qva rtf describe FILE|-`: the attributes of each run of an RTF document; `qva rtf plain FILE|-`: its
// plain text.
void addRtfCommand(CLI::App& app);

}  // namespace qva
