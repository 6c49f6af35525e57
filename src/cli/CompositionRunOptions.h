#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qva {

// What the commands that run a composition into outputs share on their command lines: which composition,
// how many frames, at what size and rate, and the published inputs set before the first frame.
struct CompositionRunOptions {
  std::string compositionPath;
  std::optional<long long> frames;
  std::optional<double> duration;
  std::string size;
  std::optional<double> frameRate;
  std::vector<std::string> assignments;

  // Adds COMPOSITION, --frames, --duration, --size, --fps and --set to the command, filling options.
  static void addTo(CLI::App& command, const std::shared_ptr<CompositionRunOptions>& options);
};

}  // namespace qva
