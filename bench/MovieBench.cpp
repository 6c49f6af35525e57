// Movie playback: 1080p50 H.264 through the movie player patch to pixels read back from GL, against
// the ffmpeg command decoding the same file to nowhere, and frame-accurate jumps to random times.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "ExecuteOnce.h"
#include "foundation/dispatch/TaskQueue.h"
#include "foundation/media/MovieFile.h"
#include "framework/ExecutionContext.h"
#include "host/HostBillboard.h"
#include "host/Renderer.h"
#include "patches/media/QVAMoviePlayerPlugIn.h"

namespace qva {
namespace {

constexpr int kFrames = 250;
constexpr double kRate = 50;

// Five seconds of 1080p50 H.264 with a moving test picture, made once per run and removed at its end;
// empty without ffmpeg.
class BenchMovie {
 public:
  BenchMovie() {
    const auto file =
        std::filesystem::temp_directory_path() / ("qva-movie-bench-" + std::to_string(getpid()) + ".mp4");
    const std::string command =
        "ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=s=1920x1080:r=50 -frames:v " +
        std::to_string(kFrames) + " -c:v libx264 -preset veryfast -pix_fmt yuv420p -g 50 " + file.string();
    if (std::system(command.c_str()) == 0) {
      path_ = file.string();
    }
  }
  ~BenchMovie() {
    if (!path_.empty()) {
      std::filesystem::remove(path_);
    }
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

const std::string& movie() {
  static const BenchMovie made;
  return made.path();
}

void BM_MoviePlayerToReadback(benchmark::State& state) {
  if (movie().empty()) {
    state.SkipWithError("no ffmpeg to make the movie");
    return;
  }
  // As qva render draws a frame: the canvas cleared, the movie image on a billboard across it, and the
  // canvas read back into the frame of the output.
  auto creation = Renderer::create(1920, 1080);
  if (!creation.renderer) {
    state.SkipWithError(creation.error.c_str());
    return;
  }
  Renderer& renderer = *creation.renderer;
  std::vector<std::uint8_t> frame(std::size_t{1920} * 1080 * 4);
  TaskQueue queue;
  ExecutionContext context(queue);
  renderer.beginFrame(context, Color{0, 0, 0, 0});
  QVAMoviePlayerPlugIn player;
  player.setInputValue("inputMoviePath", Value(movie()));
  player.setInputValue("inputLoop", Value(false));
  player.setInputValue("inputLoadMode", Value(static_cast<std::uint32_t>(state.range(0))));
  player.startExecution(context);
  player.enableExecution(context);
  HostBillboard billboard;
  billboard.setInputValue("inputWidth", Value(2.0));
  long long frames = 0;
  double time = 0;
  for (auto _ : state) {
    for (int index = 0; index < kFrames; ++index, time += 1 / kRate) {
      renderer.beginFrame(context, Color{0, 0, 0, 0});
      executeOnce(player, context, time);
      billboard.setInputValue("inputImage", player.findOutputPort("outputImage")->value);
      if (!executeOnce(billboard, context, time)) {
        state.SkipWithError("no frame");
        return;
      }
      renderer.readFrame(frame.data(), std::size_t{1920} * 4);
    }
    frames += kFrames;
    // The next pass plays the movie again from its start.
    player.setInputValue("inputRewind", Value(true));
    executeOnce(player, context, time);
    player.setInputValue("inputRewind", Value(false));
  }
  billboard.setInputValue("inputImage", Value());
  player.stopExecution(context);
  const char* modes[] = {"from disk", "in memory", "loaded ahead"};
  state.SetLabel(std::string("1080p50 H.264 ") + modes[state.range(0)] + ", drawn and read back");
  state.counters["fps"] = benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_MoviePlayerToReadback)
    ->DenseRange(0, 2)
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The peer: FFmpeg's own command line decoding every frame and throwing it away.
void BM_FFmpegDecodeToNull(benchmark::State& state) {
  if (movie().empty()) {
    state.SkipWithError("no ffmpeg to make the movie");
    return;
  }
  const std::string command = "ffmpeg -nostdin -v error -i " + movie() + " -f null -";
  long long frames = 0;
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) {
      state.SkipWithError("ffmpeg failed");
      return;
    }
    frames += kFrames;
  }
  state.SetLabel("1080p50 H.264, ffmpeg -f null");
  state.counters["fps"] = benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_FFmpegDecodeToNull)->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// 100 jumps to random times, each decoded to the exact frame and converted to BGRA.
void BM_MovieSeekToRandomTimes(benchmark::State& state) {
  if (movie().empty()) {
    state.SkipWithError("no ffmpeg to make the movie");
    return;
  }
  MovieFile::Opening opening = MovieFile::open(movie(), MovieLoadMode::PrerollOnly, 1);
  if (!opening.movie) {
    state.SkipWithError(opening.error.c_str());
    return;
  }
  std::mt19937 random(11);
  std::uniform_int_distribution<std::int64_t> anyTime(0, opening.movie->duration() - 1);
  long long seeks = 0;
  for (auto _ : state) {
    for (int jump = 0; jump < 100; ++jump) {
      benchmark::DoNotOptimize(opening.movie->frameForTime(anyTime(random)));
    }
    seeks += 100;
  }
  state.SetLabel("1080p50 H.264, key frame every second");
  state.counters["seeks/s"] = benchmark::Counter(static_cast<double>(seeks), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_MovieSeekToRandomTimes)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace qva
