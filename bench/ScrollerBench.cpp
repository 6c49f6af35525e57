// The text scroller crawling a strip of 10, 100 and 10,000 items: a 1920 × 100 crawl at 200 pixels a
// second, drawn pixel for pixel on a 1080p canvas at 50 frames a second and read back, as `qva render`
// does. Against it, FFmpeg's drawtext filter crawling the same text over a transparent 1080p picture.
// Both report frames a second ("fps"); the scroller's cost per frame should not grow with the strip. The
// floor under every frame, the canvas cleared and read back with nothing on it, is qva_render_bench's
// BM_EmptyFrame.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "ExecuteOnce.h"
#include "ProjectFonts.h"
#include "foundation/dispatch/TaskQueue.h"
#include "foundation/image/Bitmap.h"
#include "framework/Structure.h"
#include "host/HostBillboard.h"
#include "host/Renderer.h"
#include "patches/richtext/RTF_StylePlugIn.h"
#include "patches/scroller/TextScrollerPlugIn.h"

namespace qva {
namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kCrawlHeight = 100;
constexpr double kFrameRate = 50;
constexpr double kSpeed = 200;
constexpr double kFontSize = 40;
// The project's font configuration (ProjectFonts.h) maps the scroller's default family onto the same file.
const char* const kFontFile = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

std::string headline(int index) {
  return "Headline number " + std::to_string(index) + " from the newsroom";
}

// The crawl, shown that many pixels (or fractions of one) right of the canvas's middle.
void crawl(benchmark::State& state, double offset) {
  auto creation = Renderer::create(kWidth, kHeight);
  if (!creation.renderer) {
    state.SkipWithError(creation.error.c_str());
    return;
  }
  Renderer& renderer = *creation.renderer;
  TaskQueue queue;
  ExecutionContext context(queue);
  const auto items = static_cast<int>(state.range(0));
  std::vector<Value> strings;
  for (int i = 0; i < items; ++i) {
    strings.emplace_back(headline(i));
  }
  RTF_StylePlugIn::Settings style;
  style.useShadow = false;
  style.fontSize = kFontSize;

  TextScrollerPlugIn scroller;
  scroller.setInputValue("inputWidth", Value(std::uint32_t{kWidth}));
  scroller.setInputValue("inputHeight", Value(std::uint32_t{kCrawlHeight}));
  scroller.setInputValue("inputSpeed", Value(kSpeed));
  scroller.setInputValue("inputRepeatMode", Value(std::uint32_t{1}));
  scroller.setInputValue("inputStrings", Value(Structure::makeArray(std::move(strings))));
  for (const char* key : {"inputRTFStyle", "inputSeparatorRTFStyle"}) {
    scroller.setInputValue(key, Value(RTF_StylePlugIn::styleString(style).value_or("")));
  }
  // Width 0 draws the image pixel for pixel, on whole pixels in the canvas's middle when not offset.
  HostBillboard billboard;
  billboard.setInputValue("inputX", Value(offset * 2 / kWidth));
  renderer.beginFrame(context, Color{0, 0, 0, 0});
  scroller.startExecution(context);
  billboard.startExecution(context);

  auto frame = Bitmap::allocate(kWidth, kHeight, kWidth * 4);
  long long index = 0;
  const auto render = [&] {
    const double time = static_cast<double>(index++) / kFrameRate;
    renderer.beginFrame(context, Color{0, 0, 0, 0});
    executeOnce(scroller, context, time);
    billboard.setInputValue("inputImage", scroller.outputPorts()[0].value);
    executeOnce(billboard, context, time);
    renderer.readFrame(frame->bytes(), frame->rowBytes());
  };
  // The first frame builds and measures the strip; the frames after it are what a crawl costs.
  const auto built = std::chrono::steady_clock::now();
  render();
  const double buildSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - built).count();
  for (int warmUp = 0; warmUp < 10; ++warmUp) {
    render();
  }
  for (auto _ : state) {
    render();
    benchmark::DoNotOptimize(frame->bytes()[0]);
  }
  scroller.stopExecution(context);
  state.SetLabel(std::to_string(scroller.renderedTileCount()) + " tiles rendered");
  state.counters["fps"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["build_ms"] = buildSeconds * 1000;
}

void BM_ScrollerCrawl(benchmark::State& state) {
  crawl(state, 0);
}
BENCHMARK(BM_ScrollerCrawl)->Arg(10)->Arg(100)->Arg(10000)->Unit(benchmark::kMillisecond)->UseRealTime();

// A quarter of a pixel off the pixel grid, the crawl is drawn into a texture each frame and filtered.
void BM_ScrollerCrawlOffGrid(benchmark::State& state) {
  crawl(state, 0.25);
}
BENCHMARK(BM_ScrollerCrawlOffGrid)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();

// FFmpeg's drawtext crawling the same text at the same size and speed over a transparent 1080p source,
// its frames thrown away. Each iteration runs it twice, for one frame and for many, and times only the
// difference: the frames' own cost, the source making each frame included, without the process's start-up
// and first frame, as the scroller's figures leave out the building of its strip. The second argument 0
// runs the filter as is, on planar YUV 4:2:0 frames without alpha (what the source gives it by default),
// less than half the bytes of a canvas frame; 1 makes the source BGRA with alpha, the canvas's own format,
// so that both sides make the same frames.
void BM_FFmpegDrawtext(benchmark::State& state) {
  if (std::system("ffmpeg -hide_banner -filters 2>/dev/null | grep -q drawtext") != 0) {
    state.SkipWithError("no ffmpeg with the drawtext filter");
    return;
  }
  const auto items = static_cast<int>(state.range(0));
  // drawtext lays out the whole text every frame, so long texts get fewer frames.
  const int frames = items > 1000 ? 100 : 1000;
  const auto textPath =
      std::filesystem::temp_directory_path() / ("qva-drawtext-" + std::to_string(getpid()) + ".txt");
  {
    std::ofstream text(textPath);
    for (int i = 0; i < items; ++i) {
      text << (i > 0 ? " +++ " : "") << headline(i);
    }
  }
  const auto command = [&](int count) {
    return "ffmpeg -hide_banner -loglevel error -f lavfi -i color=c=black@0:s=1920x1080:r=50 -vf \"" +
           std::string(state.range(1) != 0 ? "format=bgra," : "") +
           "drawtext=fontfile=" + std::string(kFontFile) + ":textfile=" + textPath.string() +
           ":fontsize=" + std::to_string(static_cast<int>(kFontSize)) + ":fontcolor=red:x=w-t*" +
           std::to_string(static_cast<int>(kSpeed)) + ":y=490\" -frames:v " + std::to_string(count) +
           " -f null -";
  };
  const auto secondsFor = [&](int count) -> std::optional<double> {
    const auto start = std::chrono::steady_clock::now();
    if (std::system(command(count).c_str()) != 0) {
      return std::nullopt;
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  long long rendered = 0;
  for (auto _ : state) {
    const auto startUp = secondsFor(1);
    const auto whole = secondsFor(frames);
    if (!startUp || !whole) {
      state.SkipWithError("ffmpeg failed");
      break;
    }
    state.SetIterationTime(std::max(*whole - *startUp, 1e-6));
    rendered += frames - 1;
  }
  std::filesystem::remove(textPath);
  state.SetLabel(state.range(1) != 0 ? "BGRA frames" : "YUV 4:2:0 frames");
  state.counters["fps"] = benchmark::Counter(static_cast<double>(rendered), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_FFmpegDrawtext)
    ->ArgsProduct({{10, 100, 10000}, {0, 1}})
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

}  // namespace
}  // namespace qva
