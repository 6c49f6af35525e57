#include "cli/CompositionRunOptions.h"

namespace qva {

void CompositionRunOptions::addTo(CLI::App& command, const std::shared_ptr<CompositionRunOptions>& options) {
  command.add_option("COMPOSITION", options->compositionPath, "The composition file (.qvc)");
  auto* frames = command.add_option_function<long long>(
      "--frames", [options](long long count) { options->frames = count; }, "Number of frames");
  auto* duration = command.add_option_function<double>(
      "--duration", [options](double seconds) { options->duration = seconds; }, "Number of seconds");
  frames->excludes(duration);
  command.add_option("--size", options->size,
                     "Output size WIDTHxHEIGHT in pixels, the composition's canvas scaled to it, its width "
                     "across the output's (default: the canvas's size)");
  command.add_option_function<double>(
      "--fps", [options](double rate) { options->frameRate = rate; },
      "Frames per second (default: the composition's)");
  command.add_option("--set", options->assignments,
                     "Set a published input: NAME=VALUE (VALUE as JSON or text)");
}

}  // namespace qva
