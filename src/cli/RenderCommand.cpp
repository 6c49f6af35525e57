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
#include "cli/CompositionRunOptions.h"
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
#include "host/VideoUnderlay.h"

namespace qva {

namespace {

struct RenderOptions : CompositionRunOptions {
  std::string output = "out.mov";
  std::string codec;
  FieldOrder fieldOrder = FieldOrder::Progressive;
  // A movie under the composition, which then sets the size, rate and length unless given.
  std::string video;
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
  std::unique_ptr<VideoUnderlay> clip;
  if (!options.video.empty()) {
    VideoUnderlay::Opening opening = VideoUnderlay::open(options.video);
    if (!opening.underlay) {
      throw CommandError("--video " + opening.error);
    }
    clip = std::move(opening.underlay);
  }
  const auto [width, height] = !options.size.empty() ? parseCanvasSize(options.size)
                               : clip                ? std::pair{clip->width(), clip->height()}
                                                     : std::pair{composition.width(), composition.height()};
  const bool videoLength = clip && !options.frames && !options.duration;
  const auto [frameRate, frames] = FrameCount::resolve(
      composition, options.frames, videoLength ? std::optional(clip->seconds()) : options.duration,
      options.frameRate || !clip ? options.frameRate : std::optional(clip->frameRate()));

  auto creation = Renderer::create(width, height);
  if (!creation.renderer) {
    throw CommandError(creation.error);
  }
  Renderer& renderer = *creation.renderer;
  renderer.setLogicalWidth(composition.width());

  TaskQueue queue;
  ExecutionContext context(queue);
  // The clip draws through the context and holds textures of the renderer's: it goes before them.
  const std::unique_ptr<VideoUnderlay> underlay = std::move(clip);
  context.setCompositionPath(location);
  context.setOffline(true);
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
  const FrameRenderer::Scene scene = [&](double time, const Arguments& arguments) {
    if (underlay) {
      underlay->draw(context, time);
    }
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
  CompositionRunOptions::addTo(*command, options);
  command->add_option(
      "-o,--output", options->output,
      "NAME.mov (QuickTime Animation with alpha), .mp4 (H.264), .mkv (FFV1), a folder or "
      "pattern like out_%05d.png, or - for raw BGRA frames on standard output (default out.mov)");
  command->add_option("--video", options->video,
                      "A movie as the bottom layer, under the composition; its size, rate and length are "
                      "the output's unless --size, --fps, --frames or --duration say otherwise");
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
