// Rendering speed: shape rasterisation at 1080p, a 1080p composition of three textured sprites and a
// shape rendered and read back per frame (without output and into each video codec, and with billboards
// in place of the sprites for comparison), and the demo composition rendered and encoded as QuickTime
// Animation. Real time at 1080p50 is 50 frames a second.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <memory>

#include "ExecuteOnce.h"
#include "cli/DemoComposition.h"
#include "foundation/dispatch/TaskQueue.h"
#include "foundation/image/Bitmap.h"
#include "foundation/image/PngWriter.h"
#include "foundation/video/VideoWriter.h"
#include "host/CompositionGraph.h"
#include "host/FrameRenderer.h"
#include "host/HostBillboard.h"
#include "host/HostPatches.h"
#include "host/RenderOutput.h"
#include "host/Renderer.h"
#include "host/ThreadedOutput.h"
#include "patches/AllPatches.h"
#include "patches/render/QVACirclePlugIn.h"
#include "patches/render/QVAPolygonPlugIn.h"
#include "patches/render/QVARoundedRectPlugIn.h"
#include "patches/render/QVASkewedRectanglePlugIn.h"
#include "patches/render/QVATexturedSquarePlugIn.h"

namespace qva {
namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

template <typename Shape>
void BM_ShapeRasterisation(benchmark::State& state) {
  TaskQueue queue;
  ExecutionContext context(queue);
  Shape shape;
  shape.setInputValue("inputWidth", Value(std::uint32_t{kWidth}));
  shape.setInputValue("inputHeight", Value(std::uint32_t{kHeight}));
  double outline = 4;
  for (auto _ : state) {
    // A changed input each time, as a host would run the processor.
    outline = outline == 4 ? 5 : 4;
    shape.setInputValue("inputOutlineWidth", Value(outline));
    executeOnce(shape, context, 0);
  }
  state.counters["fps"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK_TEMPLATE(BM_ShapeRasterisation, QVACirclePlugIn)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_ShapeRasterisation, QVARoundedRectPlugIn)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_ShapeRasterisation, QVAPolygonPlugIn)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_ShapeRasterisation, QVASkewedRectanglePlugIn)->Unit(benchmark::kMillisecond);

// Un-premultiplying a 1080p frame for straight-alpha video, a third each empty, opaque and half covered.
void BM_UnpremultiplyFrame(benchmark::State& state) {
  auto frame = Bitmap::allocate(kWidth, kHeight, kWidth * 4);
  for (int y = 0; y < kHeight; ++y) {
    const std::uint8_t alpha = y < kHeight / 3 ? 0 : y < 2 * kHeight / 3 ? 255 : 128;
    for (int x = 0; x < kWidth; ++x) {
      std::uint8_t* p = frame->row(y) + x * 4;
      p[0] = static_cast<std::uint8_t>(x * alpha / kWidth);
      p[1] = alpha / 2;
      p[2] = alpha;
      p[3] = alpha;
    }
  }
  std::vector<std::uint8_t> straight(static_cast<std::size_t>(kWidth) * 4);
  for (auto _ : state) {
    for (int y = 0; y < kHeight; ++y) {
      PngWriter::unpremultiplyRow(frame->row(y), straight.data(), kWidth, PngWriter::ChannelOrder::ARGB);
    }
    benchmark::DoNotOptimize(straight.data());
  }
}
BENCHMARK(BM_UnpremultiplyFrame)->Unit(benchmark::kMillisecond);

// The floor under every frame: the canvas cleared and read back with nothing drawn on it.
void BM_EmptyFrame(benchmark::State& state) {
  auto creation = Renderer::create(kWidth, kHeight);
  if (!creation.renderer) {
    state.SkipWithError(creation.error.c_str());
    return;
  }
  TaskQueue queue;
  ExecutionContext context(queue);
  auto frame = Bitmap::allocate(kWidth, kHeight, kWidth * 4);
  for (auto _ : state) {
    creation.renderer->beginFrame(context, Color{0.1, 0.1, 0.2, 1});
    creation.renderer->readFrame(frame->bytes(), frame->rowBytes());
    benchmark::DoNotOptimize(frame->bytes()[0]);
  }
  state.counters["fps"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_EmptyFrame)->Unit(benchmark::kMillisecond)->UseRealTime();

// A picture of bands, as a texture source for the layers.
ImageRef bandImage(std::uint8_t shade, int width, int height) {
  auto bitmap = Bitmap::allocate(width, height, Bitmap::paddedRowBytes(width));
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      std::uint8_t* p = bitmap->row(y) + x * 4;
      p[0] = static_cast<std::uint8_t>(x / 3);
      p[1] = shade;
      p[2] = static_cast<std::uint8_t>(y / 2);
      p[3] = 255;
    }
  }
  return std::move(*bitmap).toImage();
}

const char* const kCodecs[] = {"", "qtrle", "prores4444", "h264", "ffv1"};
const char* const kExtensions[] = {"", ".mov", ".mov", ".mp4", ".mkv"};

std::string scratchPath(const char* extension) {
  return (std::filesystem::temp_directory_path() /
          ("qva-render-bench-" + std::to_string(getpid()) + extension))
      .string();
}

// How BM_ThreeSpriteComposition draws its three moving pictures.
enum class Layers : std::int64_t {
  ProgressiveSprites,  // 640×360 images scaled to 576×324, bilinear, no mipmaps
  // The same with the sprite's defaults: interlaced source, trilinear from mipmaps. The sprites keep
  // their size and move only sideways, so from their second frame on they draw the filter baked on
  // the window's rows (see PrefilteredTexture).
  DefaultSprites,
  // Default sprites whose size changes every frame, so that the filter is never baked (see
  // PrefilteredTexture) and the driver samples the mipmaps at every pixel.
  ZoomingSprites,
  // 576×324 images drawn pixel for pixel on whole pixels, which samples nearest texels: the least a
  // textured layer of that size costs the host, so a floor for the sprites' figures.
  Billboards,
  // Default sprites that also move up and down, so that the filter is baked on the grid's rows.
  RisingSprites,
};

// Three textured layers and a shape on a 1080p canvas, read back every frame; the first argument 0
// writes nowhere, the others encode with one of kCodecs; the second is a Layers. Each layer prepares
// its texture once; the frames only draw, as they do while an image stays the same.
void BM_ThreeSpriteComposition(benchmark::State& state) {
  auto creation = Renderer::create(kWidth, kHeight);
  if (!creation.renderer) {
    state.SkipWithError(creation.error.c_str());
    return;
  }
  Renderer& renderer = *creation.renderer;
  TaskQueue queue;
  ExecutionContext context(queue);
  std::unique_ptr<VideoWriter> writer;
  const auto codec = static_cast<std::size_t>(state.range(0));
  const std::string path = scratchPath(kExtensions[codec]);
  if (codec != 0) {
    auto opened = VideoWriter::open(path, kWidth, kHeight, 50, kCodecs[codec]);
    if (!opened.writer) {
      state.SkipWithError(opened.error.c_str());
      return;
    }
    writer = std::move(opened.writer);
  }
  const auto layers = static_cast<Layers>(state.range(1));
  std::vector<std::unique_ptr<Patch>> pictures;
  for (int i = 0; i < 3; ++i) {
    const auto shade = static_cast<std::uint8_t>(80 * i);
    std::unique_ptr<Patch> picture;
    if (layers == Layers::Billboards) {
      picture = std::make_unique<HostBillboard>();
      picture->setInputValue("inputImage", Value(bandImage(shade, 576, 324)));
    } else {
      const bool defaults = layers != Layers::ProgressiveSprites;
      picture = std::make_unique<QVATexturedSquarePlugIn>();
      picture->setInputValue("inputImage", Value(bandImage(shade, 640, 360)));
      picture->setInputValue("inputWidth", Value(0.6));
      picture->setInputValue("inputHeight", Value(0.3375));
      picture->setInputValue("inputColor", Value(Color{1, 1, 1, 1}));
      picture->setInputValue("inputBlending", Value(std::uint32_t{1}));
      picture->setInputValue("inputMipmapping", Value(defaults));
      picture->setInputValue("inputInterlaced", Value(defaults));
    }
    renderer.beginFrame(context, Color{0, 0, 0, 0});
    picture->startExecution(context);
    picture->enableExecution(context);
    pictures.push_back(std::move(picture));
  }
  // Billboards move in whole pixels, so that they stay pixel for pixel.
  const double step = layers == Layers::Billboards ? renderer.bounds().width / kWidth : 0;
  QVARoundedRectPlugIn shape;
  shape.setInputValue("inputWidth", Value(std::uint32_t{800}));
  shape.setInputValue("inputHeight", Value(std::uint32_t{160}));
  executeOnce(shape, context, 0);
  HostBillboard billboard;
  billboard.setInputValue("inputImage", shape.outputPorts()[0].value);
  billboard.setInputValue("inputY", Value(-0.4));
  billboard.setInputValue("inputWidth", Value(0.83));
  auto frame = Bitmap::allocate(kWidth, kHeight, kWidth * 4);
  long long index = 0;
  const auto render = [&] {
    const double time = static_cast<double>(index++) / 50;
    renderer.beginFrame(context, Color{0.1, 0.1, 0.2, 1});
    for (std::size_t i = 0; i < pictures.size(); ++i) {
      const double x = -0.5 + 0.3 * static_cast<double>(i) + 0.1 * std::sin(time);
      const double rise = layers == Layers::RisingSprites ? 0.05 * std::sin(time) : 0;
      pictures[i]->setInputValue("inputX", Value(step > 0 ? std::round(x / step) * step : x));
      pictures[i]->setInputValue("inputY", Value(0.3 - 0.3 * static_cast<double>(i) + rise));
      if (layers == Layers::ZoomingSprites) {
        const double zoom = 1 + 0.05 * std::sin(time);
        pictures[i]->setInputValue("inputWidth", Value(0.6 * zoom));
        pictures[i]->setInputValue("inputHeight", Value(0.3375 * zoom));
      }
      executeOnce(*pictures[i], context, time);
    }
    executeOnce(billboard, context, time);
    renderer.readFrame(frame->bytes(), frame->rowBytes());
  };
  // The driver compiles its shaders on the first frames; a long render never sees that again.
  for (int warmUp = 0; warmUp < 10; ++warmUp) {
    render();
  }
  for (auto _ : state) {
    render();
    if (writer) {
      writer->writeFrame(frame->view());
    }
    benchmark::DoNotOptimize(frame->bytes()[0]);
  }
  if (writer) {
    writer->finish();
    std::filesystem::remove(path);
  }
  for (auto& picture : pictures) {
    picture->stopExecution(context);
  }
  const char* const layerNames[] = {", progressive sprites, no mipmaps", ", sprite defaults",
                                    ", sprite defaults zooming", ", billboards pixel for pixel",
                                    ", sprite defaults rising"};
  state.SetLabel(std::string(codec == 0 ? "no output" : kCodecs[codec]) + layerNames[state.range(1)]);
  state.counters["fps"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ThreeSpriteComposition)
    ->ArgsProduct({{0, 1, 2, 3, 4}, {static_cast<std::int64_t>(Layers::DefaultSprites)}})
    ->Args({0, static_cast<std::int64_t>(Layers::ProgressiveSprites)})
    ->Args({1, static_cast<std::int64_t>(Layers::ProgressiveSprites)})
    ->Args({0, static_cast<std::int64_t>(Layers::ZoomingSprites)})
    ->Args({0, static_cast<std::int64_t>(Layers::RisingSprites)})
    ->Args({0, static_cast<std::int64_t>(Layers::Billboards)})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The whole built-in demo at 1080p, rendered and encoded as QuickTime Animation as `qva render` does,
// from making the GL context to closing the file: progressive at 50 frames a second (argument 0), or
// interlaced at 25 frames of two fields (1). "realtime" above 1 is faster than real time.
void BM_DemoToQuickTimeAnimation(benchmark::State& state) {
  const Composition composition = Composition::parse(demoCompositionText(), "demo.qvc");
  const bool interlaced = state.range(0) != 0;
  const double frameRate = interlaced ? composition.frameRate() / 2 : composition.frameRate();
  const FieldOrder order = interlaced ? FieldOrder::UpperFirst : FieldOrder::Progressive;
  const auto frameCount = static_cast<long long>(std::llround(composition.duration() * frameRate));
  const std::string path = scratchPath(".mov");
  long long rendered = 0;
  const auto started = std::chrono::steady_clock::now();
  for (auto _ : state) {
    auto creation = Renderer::create(composition.width(), composition.height());
    if (!creation.renderer) {
      state.SkipWithError(creation.error.c_str());
      return;
    }
    Renderer& renderer = *creation.renderer;
    PatchRegistry registry = bundledPatches();
    registerHostPatches(registry);
    TaskQueue queue;
    ExecutionContext context(queue);
    renderer.beginFrame(context, composition.background());
    CompositionGraph graph(composition, registry, context, queue);
    ThreadedOutput output(
        RenderOutput::open(path, composition.width(), composition.height(), frameRate, "", order).output);
    FrameRenderer frames(renderer, context, composition.background(), frameRate, order);
    const FrameRenderer::Scene scene = [&graph](double time, const Arguments& arguments) {
      graph.evaluate(time, arguments);
    };
    for (long long index = 0; index < frameCount; ++index) {
      output.writeFrameFilledBy(composition.width(), composition.height(),
                                [&](Bitmap& frame) { return frames.render(index, scene, frame); });
    }
    if (const std::string error = output.finish(); !error.empty()) {
      state.SkipWithError(error.c_str());
      return;
    }
    graph.stop();
    rendered += frameCount;
  }
  std::filesystem::remove(path);
  state.SetLabel(interlaced ? "1080i25, upper field first" : "1080p50");
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  state.counters["fps"] = static_cast<double>(rendered) / seconds;
  state.counters["realtime"] = static_cast<double>(rendered) / frameRate / seconds;
}
BENCHMARK(BM_DemoToQuickTimeAnimation)
    ->Arg(0)
    ->Arg(1)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
}  // namespace qva
