// Live playout and the encoders that feed it, at 1080p50 with the built-in demo.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "cli/DemoComposition.h"
#include "foundation/image/Bitmap.h"
#include "foundation/video/VideoWriter.h"
#include "host/CompositionGraph.h"
#include "host/FrameRenderer.h"
#include "host/HostPatches.h"
#include "host/LiveOutput.h"
#include "host/MonotonicClock.h"
#include "host/Playout.h"
#include "host/Renderer.h"

namespace qva {
namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr double kFrameRate = 50;

std::string scratchPath(const std::string& name) {
  return (std::filesystem::temp_directory_path() / ("qva-playout-bench-" + std::to_string(getpid()) + name))
      .string();
}

Composition demo() {
  return Composition::parse(demoCompositionText(), "demo.qvc");
}

// The demo's first frames at 1080p, rendered once for the encoding benchmarks.
const std::vector<Bitmap>& demoFrames(std::string& error) {
  static std::vector<Bitmap> frames;
  static std::string renderError;
  if (frames.empty() && renderError.empty()) {
    auto creation = Renderer::create(kWidth, kHeight);
    if (!creation.renderer) {
      renderError = creation.error;
    } else {
      const Composition composition = demo();
      TaskQueue queue;
      ExecutionContext context(queue);
      creation.renderer->beginFrame(context, composition.background());
      CompositionGraph graph(composition, availablePatches(), context, queue);
      FrameRenderer renderer(*creation.renderer, context, composition.background(), kFrameRate,
                             FieldOrder::Progressive);
      const FrameRenderer::Scene scene = [&graph](double time, const Arguments& arguments) {
        graph.evaluate(time, arguments);
      };
      // Two seconds in, where the lower third and the crawl are on.
      for (long long index = 100; index < 132; ++index) {
        auto frame = Bitmap::allocate(kWidth, kHeight, kWidth * 4);
        renderer.render(index, scene, *frame);
        frames.push_back(std::move(*frame));
      }
      graph.stop();
    }
  }
  error = renderError;
  return frames;
}

const char* const kCodecs[] = {"qtrle", "prores4444"};

// The demo's frames encoded into a .mov with QuickTime Animation (argument 0) or ProRes 4444 (1) by the
// writer `qva render` and `qva play` use, on every processor.
void BM_EncodeDemoFrames(benchmark::State& state) {
  std::string error;
  const std::vector<Bitmap>& frames = demoFrames(error);
  if (frames.empty()) {
    state.SkipWithError(error.c_str());
    return;
  }
  const char* codec = kCodecs[state.range(0)];
  const std::string path = scratchPath(".mov");
  long long encoded = 0;
  for (auto _ : state) {
    auto opened = VideoWriter::open(path, kWidth, kHeight, kFrameRate, codec);
    if (!opened.writer) {
      state.SkipWithError(opened.error.c_str());
      return;
    }
    for (const Bitmap& frame : frames) {
      opened.writer->writeFrame(frame.view());
    }
    opened.writer->finish();
    encoded += static_cast<long long>(frames.size());
  }
  std::filesystem::remove(path);
  state.SetLabel(std::string(codec) + " on " + std::to_string(std::thread::hardware_concurrency()) +
                 " processors");
  state.counters["fps"] = benchmark::Counter(static_cast<double>(encoded), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_EncodeDemoFrames)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same frames encoded by the ffmpeg command from raw BGRA in a file, as its users would: QuickTime
// Animation (argument 0) or ProRes 4444 with prores_ks (1).
void BM_FFmpegEncodeDemoFrames(benchmark::State& state) {
  std::string error;
  const std::vector<Bitmap>& frames = demoFrames(error);
  if (frames.empty()) {
    state.SkipWithError(error.c_str());
    return;
  }
  if (std::system("ffmpeg -hide_banner -version >/dev/null 2>&1") != 0) {
    state.SkipWithError("no ffmpeg command");
    return;
  }
  const std::string raw = scratchPath(".bgra");
  {
    std::ofstream file(raw, std::ios::binary);
    for (const Bitmap& frame : frames) {
      file.write(reinterpret_cast<const char*>(frame.bytes()),
                 static_cast<std::streamsize>(frame.rowBytes() * static_cast<std::size_t>(kHeight)));
    }
  }
  const std::string output = scratchPath("-ffmpeg.mov");
  const std::string encoder = state.range(0) == 0
                                  ? "-c:v qtrle"
                                  : "-c:v prores_ks -profile:v 4444 -pix_fmt yuva444p10le -vendor apl0";
  const std::string command =
      "ffmpeg -hide_banner -loglevel error -y -f rawvideo -pix_fmt bgra -s 1920x1080 "
      "-r 50 -i " +
      raw + " " + encoder + " " + output;
  long long encoded = 0;
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) {
      state.SkipWithError("ffmpeg failed");
      break;
    }
    encoded += static_cast<long long>(frames.size());
  }
  std::filesystem::remove(raw);
  std::filesystem::remove(output);
  state.SetLabel(state.range(0) == 0 ? "ffmpeg qtrle" : "ffmpeg prores_ks 4444");
  state.counters["fps"] = benchmark::Counter(static_cast<double>(encoded), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_FFmpegEncodeDemoFrames)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// The demo played live at 1080p50 for a few seconds into a QuickTime Animation file and a GStreamer
// pipeline (H.264 in MPEG-TS over UDP to the loopback) at once: frames late and dropped by the clock,
// and frames each output could not take.
void BM_PlayDemoIntoFileAndGStreamer(benchmark::State& state) {
  auto creation = Renderer::create(kWidth, kHeight);
  if (!creation.renderer) {
    state.SkipWithError(creation.error.c_str());
    return;
  }
  const std::string path = scratchPath("-live.mov");
  PlayoutPacing pacing;
  std::vector<long long> outputDrops(2, 0);
  for (auto _ : state) {
    MonotonicClock clock;
    Playout playout(*creation.renderer, clock, kFrameRate, demo());
    auto opening = LiveOutput::openAll(
        {path,
         "gst:videoconvert ! x264enc tune=zerolatency speed-preset=ultrafast ! mpegtsmux ! "
         "udpsink host=127.0.0.1 port=5600"},
        kWidth, kHeight, kFrameRate, "");
    if (!opening.error.empty()) {
      state.SkipWithError(opening.error.c_str());
      return;
    }
    for (std::unique_ptr<LiveOutput>& output : opening.outputs) {
      playout.addOutput(std::move(output));
    }
    playout.play(std::llround(state.range(0) * kFrameRate));
    playout.finishOutputs();
    pacing = playout.pacing();
    for (std::size_t index = 0; index < outputDrops.size(); ++index) {
      outputDrops[index] = playout.outputs()[index]->dropped();
    }
  }
  std::filesystem::remove(path);
  state.counters["shown"] = static_cast<double>(pacing.framesShown);
  state.counters["late"] = static_cast<double>(pacing.framesLate);
  state.counters["dropped"] = static_cast<double>(pacing.framesDropped);
  state.counters["render_ms"] = pacing.renderMilliseconds;
  state.counters["file_drops"] = static_cast<double>(outputDrops[0]);
  state.counters["gst_drops"] = static_cast<double>(outputDrops[1]);
  state.SetLabel("seconds of play at 1080p50, qtrle file and x264 over UDP");
}
BENCHMARK(BM_PlayDemoIntoFileAndGStreamer)
    ->Arg(5)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
}  // namespace qva
