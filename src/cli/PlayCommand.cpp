#include "cli/PlayCommand.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/ChosenComposition.h"
#include "cli/CommandError.h"
#include "cli/CompositionRunOptions.h"
#include "cli/InterruptRequest.h"
#include "cli/PublishedInputAssignment.h"
#include "cli/RemoteControl.h"
#include "host/LiveOutput.h"
#include "host/MonotonicClock.h"
#include "host/Playout.h"
#include "host/PreviewOutput.h"
#include "host/RenderOutput.h"
#include "host/Renderer.h"

namespace qva {

namespace {

struct PlayOptions : CompositionRunOptions {
  std::vector<std::string> outputs;
  std::string codec;
  RemoteControl::Options control;
};

// How often the status line is redrawn at most.
constexpr std::chrono::milliseconds kStatusInterval(250);

std::string pacingText(const PlayoutPacing& pacing) {
  char text[200];
  std::snprintf(text, sizeof text, "%lld late, %lld dropped, %lld repeated; render %.1f ms, output %.1f ms",
                pacing.framesLate, pacing.framesDropped, pacing.framesRepeated, pacing.renderMilliseconds,
                pacing.outputMilliseconds);
  return text;
}

// Frames each output could not take, for the status line.
std::string outputDropsText(const Playout& playout) {
  std::string text;
  for (const auto& output : playout.outputs()) {
    text += (text.empty() ? "" : ", ") + std::to_string(output->dropped());
  }
  return text.empty() ? text : "; output drops " + text;
}

std::optional<long long> frameLimit(const PlayOptions& options, double frameRate) {
  if (options.frames) {
    if (*options.frames < 0) {
      throw CommandError("--frames must not be negative");
    }
    return options.frames;
  }
  if (options.duration) {
    if (!(*options.duration >= 0) || !(*options.duration * frameRate < 9e15)) {
      throw CommandError("--duration must be a number of seconds, 0 or more");
    }
    return std::llround(*options.duration * frameRate);
  }
  return std::nullopt;
}

void play(const PlayOptions& options) {
  const InterruptRequest interrupt;
  const auto [composition, location] = ChosenComposition::open(options.compositionPath);
  const auto [width, height] = options.size.empty() ? std::pair{composition.width(), composition.height()}
                                                    : parseCanvasSize(options.size);
  const double frameRate = options.frameRate.value_or(composition.frameRate());
  if (!(frameRate > 0) || !(frameRate <= 1000)) {
    throw CommandError("the frame rate must be above 0 and at most 1000 frames a second, not " +
                       std::to_string(frameRate));
  }
  const std::optional<long long> frames = frameLimit(options, frameRate);

  // The preview, however often asked for, is one window showing the canvas itself, which needs the
  // host's context on the window system; the other outputs take frames read back.
  std::vector<std::string> otherOutputs = options.outputs;
  const bool previewWanted = std::erase(otherOutputs, std::string(PreviewOutput::kName)) > 0;
  std::string previewError;
  auto creation = Renderer::create(
      width, height, previewWanted ? GLContext::Platform::WindowSystem : GLContext::Platform::Offscreen);
  if (previewWanted && !creation.renderer) {
    previewError = creation.error;
    creation = Renderer::create(width, height);
  }
  if (!creation.renderer) {
    throw CommandError(creation.error);
  }
  MonotonicClock clock;
  Playout playout(*creation.renderer, clock, frameRate, composition);
  PublishedInputAssignment::applyAll(options.assignments, playout.graph());
  auto opening = LiveOutput::openAll(otherOutputs, width, height, frameRate, options.codec);
  if (!opening.error.empty()) {
    throw CommandError(opening.error);
  }
  for (std::unique_ptr<LiveOutput>& output : opening.outputs) {
    playout.addOutput(std::move(output));
  }
  if (previewWanted && previewError.empty()) {
    auto preview = PreviewOutput::open(creation.renderer->gl(), width, height);
    previewError = preview.error;
    if (preview.output) {
      playout.addOutput(std::move(preview.output));
    }
  }
  if (!previewError.empty()) {
    if (otherOutputs.empty()) {
      throw CommandError("no preview window: " + previewError);
    }
    std::fprintf(stderr, "qva: no preview window: %s; the other outputs go on\n", previewError.c_str());
  }
  if (options.control.httpPort) {
    // For the control server's snapshots.
    playout.keepFramesInMemory();
  }

  std::optional<RemoteControl> control(std::in_place, playout, options.control);

  const bool terminal = isatty(STDERR_FILENO) == 1;
  std::vector<bool> reported(playout.outputs().size(), false);
  auto lastStatus = std::chrono::steady_clock::now() - kStatusInterval;
  const auto afterFrame = [&] {
    if (interrupt.received() != 0) {
      playout.stop();
    }
    // A failed output is reported once; the others go on, and playout ends when none is left.
    bool anyLeft = playout.outputs().empty();
    for (std::size_t index = 0; index < playout.outputs().size(); ++index) {
      const PlayoutOutput& output = *playout.outputs()[index];
      if (output.failed() && !reported[index]) {
        reported[index] = true;
        std::fprintf(stderr, "%sqva: %s stopped: %s\n", terminal ? "\r\033[K" : "",
                     output.description().c_str(), output.error().c_str());
      }
      anyLeft = anyLeft || !output.failed();
    }
    if (!anyLeft) {
      playout.stop();
    }
    const auto now = std::chrono::steady_clock::now();
    if (terminal && now - lastStatus >= kStatusInterval) {
      lastStatus = now;
      const PlayoutState state = playout.state();
      std::fprintf(stderr, "\r\033[Kframe %lld, %.2f s: %s%s", state.frame, state.time,
                   pacingText(state.pacing).c_str(), outputDropsText(playout).c_str());
      std::fflush(stderr);
    }
  };
  const auto start = std::chrono::steady_clock::now();
  playout.play(frames, afterFrame);
  control.reset();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const std::vector<std::string> errors = playout.finishOutputs();
  if (terminal) {
    std::fprintf(stderr, "\r\033[K");
  }
  const PlayoutPacing pacing = playout.pacing();
  std::fprintf(stderr, "qva: played %lld frames (%dx%d at %g fps) in %.2f s: %s, with %s\n",
               pacing.framesShown, width, height, frameRate, seconds, pacingText(pacing).c_str(),
               creation.renderer->gl().description().c_str());
  bool failed = false;
  for (std::size_t index = 0; index < errors.size(); ++index) {
    const PlayoutOutput& output = *playout.outputs()[index];
    // An output that takes the canvas on the GPU shows its frames rather than writing them.
    std::fprintf(stderr, "qva: %s: %lld frames %s, %lld dropped%s%s\n", output.description().c_str(),
                 output.written(), output.takesPixels() ? "written" : "shown", output.dropped(),
                 errors[index].empty() ? "" : "; ", errors[index].c_str());
    failed = failed || !errors[index].empty();
  }
  if (failed) {
    throw CommandError("", 1);
  }
}

}  // namespace

void addPlayCommand(CLI::App& app) {
  auto options = std::make_shared<PlayOptions>();
  CLI::App* command = app.add_subcommand("play",
                                         "Play a composition (the built-in demo without one) live at its "
                                         "frame rate until interrupted, or for the "
                                         "frames or seconds given");
  CompositionRunOptions::addTo(*command, options);
  command->add_option("-o,--output", options->outputs,
                      "An output, as many as wanted: NAME.mov, .mp4, .mkv, a PNG pattern or folder, or - "
                      "for raw BGRA frames on standard output, preview for a window, or gst:PIPELINE for a "
                      "GStreamer pipeline after an appsrc");
  command->add_flag_callback(
      "--preview", [options] { options->outputs.emplace_back(PreviewOutput::kName); },
      "Show the frames in a window too (the same as -o preview)");
  command->add_option("--codec", options->codec,
                      "Video codec of file outputs: qtrle, prores4444, h264 or ffv1");
  RemoteControl::addOptions(*command, options->control);
  command->callback([options] {
    try {
      play(*options);
    } catch (const CompositionError& error) {
      throw CommandError(error.what());
    }
  });
}

}  // namespace qva
