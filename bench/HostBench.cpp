#include <benchmark/benchmark.h>

#include <string>

#include "foundation/dispatch/TaskQueue.h"
#include "host/CompositionGraph.h"
#include "patches/AllPatches.h"
#include "patches/timing/QVAInterpolation.h"
#include "patches/timing/QVAInterpolationPlugIn.h"

namespace qva {
namespace {

// A composition of n Interpolation patches, each one's output driving the next one's value 2.
std::string chainedInterpolations(int count) {
  std::string patches;
  std::string connections;
  for (int index = 0; index < count; ++index) {
    const std::string id = "p" + std::to_string(index);
    patches +=
        (index ? ", " : "") + std::string(R"({"id": ")") + id +
        R"(", "class": "QVAInterpolationPlugIn", "inputs": {"inputHoldDuration1": 0.2, "inputHoldDuration2": 0.1}})";
    if (index > 0) {
      connections += (index > 1 ? ", " : "") + std::string("\"p") + std::to_string(index - 1) +
                     ".outputValue -> " + id + ".inputValue2\"";
    }
  }
  return R"({"format": "qva-composition/1", "patches": [)" + patches + R"(], "connections": [)" +
         connections + "]}";
}

// Host overhead per patch execution: a frame of 1,000 chained Interpolation patches, divided by 1,000.
void BM_ChainedInterpolationFrame(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  const Composition composition = Composition::parse(chainedInterpolations(count), "chain.qvc");
  TaskQueue queue;
  ExecutionContext context(queue);
  CompositionGraph graph(composition, bundledPatches(), context, queue);
  double time = 0;
  for (auto _ : state) {
    graph.evaluate(time);
    time += 0.02;
  }
  // Seconds of processor time per patch execution, host work and the patch's own work together.
  state.counters["per_patch"] =
      benchmark::Counter(count, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_ChainedInterpolationFrame)->Arg(1000)->Unit(benchmark::kMicrosecond);

void BM_QvaInterpolate(benchmark::State& state) {
  double x = 0;
  double result = 0;
  for (auto _ : state) {
    qvaInterpolate(static_cast<unsigned>(state.range(0)), x, &result);
    benchmark::DoNotOptimize(result);
    x = x >= 1 ? 0 : x + 0.001;
  }
}
BENCHMARK(BM_QvaInterpolate)->Arg(0)->Arg(9)->Arg(12);

// The phase walk costs one step per phase passed: a time of 10,000 cycles walks 40,000 phases.
void BM_PhaseSearchAt10000Cycles(benchmark::State& state) {
  QVAInterpolationPlugIn patch;
  for (const char* key : {"inputHoldDuration1", "inputHoldDuration2", "inputInterpolationDuration1",
                          "inputInterpolationDuration2"}) {
    patch.setInputValue(key, Value(0.25));
  }
  patch.updateInputChangeFlags();
  patch.pollInputPorts();
  for (auto _ : state) {
    benchmark::DoNotOptimize(patch.normalizedTimeForTime(10000.0 + 0.3));
  }
}
BENCHMARK(BM_PhaseSearchAt10000Cycles)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace qva
