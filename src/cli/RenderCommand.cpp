#include "cli/RenderCommand.h"

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "cli/ChosenComposition.h"
#include "cli/CommandError.h"
#include "cli/FrameCount.h"
#include "cli/InterruptRequest.h"
#include "cli/PublishedInputAssignment.h"
#include "foundation/dispatch/TaskQueue.h"
#include "foundation/image/Bitmap.h"
#include "host/CompositionGraph.h"
#include "host/FrameRenderer.h"
#include "host/HostPatches.h"
#include "host/RawFrameOutput.h"
#include "host/RenderOutput.h"
#include "host/Renderer.h"
#include "host/ThreadedOutput.h"

namespace qva {

namespace {

struct RenderOptions {
  std::string compositionPath;
  std::string output = "out.mov";
  std::optional<long long> frames;
  std::optional<double> duration;
  std::string size;
  std::optional<double> frameRate;
  std::vector<std::string> assignments;
  std::string codec;
  FieldOrder fieldOrder = FieldOrder::Progressive;
};

void drawProgress(long long done, long long total) {
  constexpr int kBarWidth = 40;
  const int filled = total > 0 ? static_cast<int>(kBarWidth * done / total) : kBarWidth;
  std::fprintf(stderr, "\r[%s%s] %lld/%lld frames",
               std::string(static_cast<std::size_t>(filled), '#').c_str(),
               std::string(static_cast<std::size_t>(kBarWidth - filled), '.').c_str(), done, total);
  std::fflush(stderr);
}

// A reader that closes its end of the pipe has taken what it wanted: the render ends without a
// message, with the status a shell gives a command ended by the broken pipe.
[[noreturn]] void throwOutputError(const std::string& error) {
  if (error == RawFrameOutput::kReaderClosed) {
    throw CommandError("", 128 + SIGPIPE);
  }
  throw CommandError(error);
}

void render(const RenderOptions& options) {
  // From before the output exists, so that an interrupt never leaves an unfinished file.
  const InterruptRequest interrupt;
  const auto [composition, location] = ChosenComposition::open(options.compositionPath);
  const auto [width, height] = options.size.empty() ? std::pair{composition.width(), composition.height()}
                                                    : parseCanvasSize(options.size);
  const auto [frameRate, frames] =
      FrameCount::resolve(composition, options.frames, options.duration, options.frameRate);

  auto creation = Renderer::create(width, height);
  if (!creation.renderer) {
    throw CommandError(creation.error);
  }
  Renderer& renderer = *creation.renderer;

  TaskQueue queue;
  ExecutionContext context(queue);
  context.setCompositionPath(location);
  renderer.beginFrame(context, composition.background());
  CompositionGraph graph(composition, availablePatches(), context, queue);
  PublishedInputAssignment::applyAll(options.assignments, graph);
  auto opened =
      RenderOutput::open(options.output, width, height, frameRate, options.codec, options.fieldOrder);
  if (!opened.output) {
    throw CommandError(opened.error);
  }
  // Encoding runs beside the rendering of the next frames.
  ThreadedOutput output(std::move(opened.output));
  const bool progress = isatty(STDERR_FILENO) == 1;
  FrameRenderer frameRenderer(renderer, context, composition.background(), frameRate, options.fieldOrder);
  const FrameRenderer::Scene scene = [&graph](double time, const Arguments& arguments) {
    graph.evaluate(time, arguments);
  };
  const auto start = std::chrono::steady_clock::now();
  for (long long index = 0; index < frames; ++index) {
    if (const int signal = interrupt.received(); signal != 0) {
      // Leaving here without finishing the output removes an unfinished video file; frames written as
      // PNG files stay, each of them whole.
      graph.stop();
      if (progress) {
        std::fprintf(stderr, "\n");
      }
      throw CommandError("interrupted after " + std::to_string(index) + " of " + std::to_string(frames) +
                             " frames (an unfinished video file is not kept)",
                         128 + signal);
    }
    // Frames are drawn straight into the output's queue.
    const std::string error = output.writeFrameFilledBy(
        width, height, [&](Bitmap& frame) { return frameRenderer.render(index, scene, frame); });
    if (!error.empty()) {
      graph.stop();
      throwOutputError(error);
    }
    if (progress) {
      drawProgress(index + 1, frames);
    }
  }
  graph.stop();
  if (std::string error = output.finish(); !error.empty()) {
    throwOutputError(error);
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (progress) {
    std::fprintf(stderr, "\n");
  }
  std::fprintf(stderr, "qva: rendered %lld frames (%dx%d) in %.2f s, %.1f fps, to %s, with %s\n", frames,
               width, height, seconds, seconds > 0 ? static_cast<double>(frames) / seconds : 0.0,
               output.description().c_str(), renderer.gl().description().c_str());
}

}  // namespace

void addRenderCommand(CLI::App& app) {
  auto options = std::make_shared<RenderOptions>();
  CLI::App* command = app.add_subcommand(
      "render", "Render a composition (the built-in demo without one) to a video, PNG frames or raw frames");
  command->add_option("COMPOSITION", options->compositionPath, "The composition file (.qvc)");
  command->add_option(
      "-o,--output", options->output,
      "NAME.mov (QuickTime Animation with alpha), .mp4 (H.264), .mkv (FFV1), a folder or "
      "pattern like out_%05d.png, or - for raw BGRA frames on standard output (default out.mov)");
  auto* frames = command->add_option_function<long long>(
      "--frames", [options](long long count) { options->frames = count; }, "Number of frames");
  auto* duration = command->add_option_function<double>(
      "--duration", [options](double seconds) { options->duration = seconds; }, "Seconds to render");
  frames->excludes(duration);
  command->add_option("--size", options->size, "Canvas size WIDTHxHEIGHT (default: the composition's)");
  command->add_option_function<double>(
      "--fps", [options](double rate) { options->frameRate = rate; },
      "Frames per second (default: the composition's)");
  command->add_option("--set", options->assignments,
                      "Set a published input: NAME=VALUE (VALUE as JSON or text)");
  command->add_option("--codec", options->codec, "Video codec: qtrle, prores4444, h264 or ffv1");
  command
      ->add_option_function<std::string>(
          "--interlace",
          [options](const std::string& first) {
            options->fieldOrder = first == "upper" ? FieldOrder::UpperFirst : FieldOrder::LowerFirst;
          },
          "Interlaced output: two fields per frame, half a frame apart, the upper or lower field first")
      ->check(CLI::IsMember({"upper", "lower"}).description(""))
      ->type_name("upper|lower");
  command->callback([options] {
    try {
      render(*options);
    } catch (const CompositionError& error) {
      throw CommandError(error.what());
    }
  });
}

}  // namespace qva
