#pragma once

#include <CLI/CLI.hpp>

namespace qva {

// `qva render [COMPOSITION] [-o OUT] [--frames N | --duration S] [--size WxH] [--fps F]
// [--set NAME=VALUE] [--codec C]`: renders a composition (the built-in demo without one) to a video, a
// PNG sequence or raw frames, with a progress bar on a terminal and a summary line.
void addRenderCommand(CLI::App& app);

}  // namespace qva
