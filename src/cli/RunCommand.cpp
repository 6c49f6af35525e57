#include "cli/RunCommand.h"

#include <cmath>
#include <cstdio>
#include <memory>

#include "cli/CommandError.h"
#include "cli/FrameCount.h"
#include "cli/PublishedInputAssignment.h"
#include "foundation/dispatch/TaskQueue.h"
#include "host/CompositionGraph.h"
#include "host/DriveImages.h"
#include "host/HostPatches.h"
#include "host/ValueJson.h"

namespace qva {

namespace {

struct RunOptions {
  std::string compositionPath;
  std::optional<long long> frames;
  std::optional<double> frameRate;
  std::vector<std::string> assignments;
  std::vector<std::string> printedPorts;
};

void run(const RunOptions& options) {
  const Composition composition = Composition::load(options.compositionPath);
  const auto [frameRate, frames] =
      FrameCount::resolve(composition, options.frames, std::nullopt, options.frameRate);

  std::vector<std::pair<std::string, PortReference>> printed;
  for (const std::string& text : options.printedPorts) {
    const std::optional<PortReference> port = PortReference::parse(text);
    if (!port) {
      throw CommandError("--print takes ID.PORT, not \"" + text + "\"");
    }
    printed.emplace_back(text, *port);
  }
  if (printed.empty()) {
    printed = composition.publishedOutputs();
  }
  if (printed.empty()) {
    throw CommandError(
        "nothing to print: the composition publishes no outputs; name ports with --print ID.PORT");
  }

  TaskQueue queue;
  ExecutionContext context(queue);
  context.setCompositionPath(composition.path());
  const double aspect = static_cast<double>(composition.height()) / composition.width();
  context.setBounds({-1, -aspect, 2, 2 * aspect});
  context.setViewport({composition.width(), composition.height()});
  CompositionGraph graph(composition, availablePatches(), context, queue);
  PublishedInputAssignment::applyAll(options.assignments, graph);
  for (const auto& [name, port] : printed) {
    try {
      graph.outputValue(port);
    } catch (const std::invalid_argument& error) {
      throw CommandError("--print " + name + ": " + error.what());
    }
  }

  DriveImages images(".", std::nullopt);
  const ValueJson::ImageEncoder describeImage = [&images](const ImageRef& image) {
    return images.describe(image);
  };
  for (long long frame = 0; frame < frames; ++frame) {
    const double time = static_cast<double>(frame) / frameRate;
    graph.evaluate(time);
    PropertyList values = PropertyList::object();
    for (const auto& [name, port] : printed) {
      values[name] = ValueJson::encode(graph.outputValue(port), describeImage);
    }
    const PropertyList line = {{"frame", frame}, {"time", time}, {"outputs", values}};
    std::printf("%s\n", line.dump(-1, ' ', false, PropertyList::error_handler_t::replace).c_str());
  }
  graph.stop();
}

}  // namespace

void addRunCommand(CLI::App& app) {
  auto options = std::make_shared<RunOptions>();
  CLI::App* command = app.add_subcommand("run",
                                         "Evaluate a composition frame by frame and print its published "
                                         "outputs (or --print ports) as JSON lines");
  command->add_option("COMPOSITION", options->compositionPath, "The composition file (.qvc)")->required();
  command->add_option_function<long long>(
      "--frames", [options](long long frames) { options->frames = frames; },
      "Number of frames (default: the composition's duration times the frame rate)");
  command->add_option_function<double>(
      "--fps", [options](double rate) { options->frameRate = rate; },
      "Frames per second (default: the composition's)");
  command->add_option("--set", options->assignments,
                      "Set a published input: NAME=VALUE (VALUE as JSON or text)");
  command->add_option("--print", options->printedPorts, "Print this output port, ID.PORT (repeatable)");
  command->callback([options] {
    try {
      run(*options);
    } catch (const CompositionError& error) {
      throw CommandError(error.what());
    }
  });
}

}  // namespace qva
