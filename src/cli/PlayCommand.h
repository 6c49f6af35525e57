#pragma once

#include <CLI/CLI.hpp>

namespace qva {

// `qva play [COMPOSITION] [-o OUTPUT]... [--fps F] [--size WxH] [--set NAME=VALUE] [--duration S |
// --frames N]`: plays a composition (the built-in demo without one) live on the monotonic clock into
// several outputs at once until interrupted, with a status line on a terminal and a summary at the end.
void addPlayCommand(CLI::App& app);

}  // namespace qva
