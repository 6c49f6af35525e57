// Image With RTF String at 1920x200 with a stroke and a soft shadow, the size of a lower third's name bar:
// images a second when the host executes it with the same inputs (the fixed-size path that skips the
// measuring layout), and when the text changes at every frame.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "ExecuteOnce.h"
#include "ProjectFonts.h"
#include "foundation/dispatch/TaskQueue.h"
#include "patches/richtext/Image_With_RTF_StringPlugIn.h"
#include "patches/richtext/RTF_StylePlugIn.h"

namespace {

using namespace qva;

std::string lowerThirdStyle() {
  RTF_StylePlugIn::Settings settings;
  settings.fontName = "LucidaGrande";
  settings.fontSize = 96;
  settings.fontColor = Color{1, 1, 1, 1};
  settings.strokeWidth = -3;
  settings.strokeColor = Color{0.05, 0.1, 0.35, 1};
  settings.shadowBlurRadius = 6;
  settings.shadowOffsetX = 4;
  settings.shadowOffsetY = -4;
  settings.shadowOpacity = 0.75;
  return RTF_StylePlugIn::styleString(settings).value_or("");
}

// A name as long at every frame, different from frame to frame.
std::string name(int frame) {
  return "Dr. Eleanor Vance-Whitfield, Chief Correspondent " + std::to_string(10000 + frame % 10000);
}

// A patch set up as a lower third's name: 1920x200, centred both ways, word wrap.
struct NameBar {
  TaskQueue queue;
  ExecutionContext context{queue};
  Image_With_RTF_StringPlugIn patch;

  NameBar(std::uint32_t width, std::uint32_t height) {
    patch.setInputValue("inputRTFStyle", Value(lowerThirdStyle()));
    patch.setInputValue("inputString", Value(name(0)));
    patch.setInputValue("inputWidth", Value(width));
    patch.setInputValue("inputHeight", Value(height));
  }

  bool execute(double time) { return executeOnce(patch, context, time); }
};

void countImages(benchmark::State& state) {
  state.counters["images_per_second"] = benchmark::Counter(1, benchmark::Counter::kIsIterationInvariantRate);
}

// The host runs a patch of time mode none only when an input changed; this is what one execution costs
// when it runs with the inputs it had.
void BM_ImageWithRTFStringSameInputs(benchmark::State& state) {
  NameBar bar(1920, 200);
  double time = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(bar.execute(time));
    time += 0.02;
  }
  countImages(state);
}
BENCHMARK(BM_ImageWithRTFStringSameInputs)->Unit(benchmark::kMillisecond);

// Height 0 fits the image to the text, which measures before it draws.
void BM_ImageWithRTFStringNewTextEveryFrame(benchmark::State& state) {
  NameBar bar(1920, static_cast<std::uint32_t>(state.range(0)));
  double time = 0;
  int frame = 0;
  for (auto _ : state) {
    bar.patch.setInputValue("inputString", Value(name(++frame)));
    benchmark::DoNotOptimize(bar.execute(time));
    time += 0.02;
  }
  countImages(state);
}
BENCHMARK(BM_ImageWithRTFStringNewTextEveryFrame)
    ->ArgName("height")
    ->Arg(200)
    ->Arg(0)
    ->Unit(benchmark::kMillisecond);

}  // namespace
