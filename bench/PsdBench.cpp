// Loading a 1920 × 1080 Photoshop document of 20 PackBits-compressed layers (ImageMagick writes it once
// per run): the importer the PSD Importer patch uses, from the document's bytes to the layer images with
// their places, against ImageMagick's `convert` decoding the same document (composite and every layer)
// to raw RGBA frames. Both report documents a second ("documents").
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "patches/psd/QVAPSDLayerImporter.h"

namespace qva {
namespace {

constexpr int kLayers = 20;

// The document, written on first use and removed at exit; its path is empty when ImageMagick cannot
// write it.
class BenchDocument {
 public:
  BenchDocument() {
    const std::string file =
        (std::filesystem::temp_directory_path() / ("qva-psd-bench-" + std::to_string(getpid()) + ".psd"))
            .string();
    // Layers of growing size over a sky-blue canvas, each a horizontal gradient at its own opacity, so
    // that the runs of every row differ.
    std::string command = "convert -size 1920x1080 xc:skyblue -define gradient:direction=east";
    for (int i = 0; i < kLayers; ++i) {
      command += " \\( -size " + std::to_string(600 + i * 60) + "x" + std::to_string(200 + i * 40) +
                 " gradient:red-blue -alpha set -channel A -evaluate set " + std::to_string(50 + i * 2) +
                 "% +channel -repage +" + std::to_string(i * 50) + "+" + std::to_string(i * 20) + " \\)";
    }
    command += " -depth 8 -compress RLE " + file + " 2>/dev/null";
    if (std::system(command.c_str()) == 0) {
      path_ = file;
    }
  }
  ~BenchDocument() {
    if (!path_.empty()) {
      std::filesystem::remove(path_);
    }
  }
  BenchDocument(const BenchDocument&) = delete;
  BenchDocument& operator=(const BenchDocument&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// User and system time of the finished child processes, in seconds.
double childProcessorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

const std::string& documentPath() {
  static const BenchDocument document;
  return document.path();
}

void BM_ImporterLoadsDocument(benchmark::State& state) {
  if (documentPath().empty()) {
    state.SkipWithError("ImageMagick could not write the document");
    return;
  }
  std::ifstream file(documentPath(), std::ios::binary);
  const std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(file)), {});
  for (auto _ : state) {
    const auto importer = QVAPSDLayerImporter::layerImporterWithData(bytes, true);
    if (!importer || importer->layerCount() != kLayers) {
      state.SkipWithError("the document did not load");
      return;
    }
    benchmark::DoNotOptimize(importer->layers()->front().image());
  }
  state.counters["documents"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["bytes"] = static_cast<double>(bytes.size());
}
BENCHMARK(BM_ImporterLoadsDocument)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ImageMagickConvertsDocument(benchmark::State& state) {
  if (documentPath().empty()) {
    state.SkipWithError("ImageMagick could not write the document");
    return;
  }
  const std::string command = "convert " + documentPath() + " -depth 8 rgba:/dev/null";
  const double childSecondsBefore = childProcessorSeconds();
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) {
      state.SkipWithError("convert failed");
      return;
    }
  }
  state.counters["documents"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  // The CPU column counts this process only; on a busy machine the converter's own processor time per
  // document is the fairer figure beside the importer's CPU time.
  state.counters["convert_cpu_ms"] =
      (childProcessorSeconds() - childSecondsBefore) * 1000 / static_cast<double>(state.iterations());
}
BENCHMARK(BM_ImageMagickConvertsDocument)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace qva
