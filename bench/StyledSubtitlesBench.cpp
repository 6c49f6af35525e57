// The styled subtitles patch drawing a film's worth of subtitles at 1080p, as a playout host asks for them
// at 25 frames a second (a picture that has not changed keeps its image), its renderer drawing every
// frame, and FFmpeg's subtitles filter drawing the same script over a transparent 1080p picture in the
// same run. All report frames a second ("fps").
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "ExecuteOnce.h"
#include "GeneratedScript.h"
#include "ProjectFonts.h"
#include "foundation/dispatch/TaskQueue.h"
#include "foundation/subtitles/ScriptRenderer.h"
#include "foundation/xpl/xplFiles.h"
#include "patches/subtitles/QVAStyledSubtitlesPlugIn.h"

namespace qva {
namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr double kFrameRate = 25;
constexpr int kEvents = 900;
constexpr int kSlotMs = 2000;

// kEvents events, one every two seconds, each fading in and out, every fourth placed higher with a
// second event beside it and every tenth sung in karaoke.
const std::string& scriptPath() {
  static const GeneratedScript script("qva-styled-subtitles-bench.ass", [](std::ostream& out) {
    out << "[Script Info]\nScriptType: v4.00+\nPlayResX: 1920\nPlayResY: 1080\nScaledBorderAndShadow: yes\n\n"
           "[V4+ Styles]\nFormat: Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, OutlineColour, "
           "BackColour, Bold, Italic, Underline, StrikeOut, ScaleX, ScaleY, Spacing, Angle, BorderStyle, "
           "Outline, Shadow, Alignment, MarginL, MarginR, MarginV, Encoding\n"
           "Style: Default,DejaVu Sans,64,&H00FFFFFF,&H0000FFFF,&H00000000,&H80000000,"
           "0,0,0,0,100,100,0,0,1,3,2,2,60,60,50,1\n"
           "Style: Top,Liberation Serif,56,&H0000FFFF,&H000000FF,&H00400000,&H60202020,"
           "1,1,0,0,100,100,0,0,3,4,0,8,60,60,40,1\n\n"
           "[Events]\nFormat: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n";
    for (int i = 0; i < kEvents; ++i) {
      const int start = i * kSlotMs;
      const std::string times =
          GeneratedScript::clock(start) + "," + GeneratedScript::clock(start + kSlotMs * 9 / 10);
      const std::string karaoke = i % 10 == 0 ? "{\\k40}Sung {\\k40}line {\\k40}" : "";
      out << "Dialogue: 0," << times << ",Default,,0,0,0,,{\\fad(200,200)}" << karaoke << "Line " << i
          << " of the film, said with some words\\Nand a second line of subtitle text\n";
      if (i % 4 == 0) {
        out << "Dialogue: 1," << times << ",Top,,0,0,0,,{\\fad(200,200)}Sign " << i << " at the top\n";
      }
    }
  });
  return script.path();
}

void BM_StyledSubtitles1080p(benchmark::State& state) {
  TaskQueue queue;
  ExecutionContext context(queue);
  context.setViewport(PixelSize{kWidth, kHeight});
  QVAStyledSubtitlesPlugIn patch;
  patch.setInputValue("inputSubtitleFile", Value(scriptPath()));
  long long frame = 0;
  long long drawn = 0;
  ImageRef last;
  const long long framesInScript = static_cast<long long>(kEvents) * kSlotMs * kFrameRate / 1000;
  for (auto _ : state) {
    const double time = static_cast<double>(frame++ % framesInScript) / kFrameRate;
    patch.setInputValue("inputMovieTime", Value(time));
    executeOnce(patch, context, time);
    const ImageRef image = patch.findOutputPort("outputImage")->value.imageValue();
    drawn += image != last;
    last = image;
    benchmark::DoNotOptimize(image);
  }
  state.counters["fps"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["drawn"] = static_cast<double>(drawn) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_StyledSubtitles1080p)->Iterations(1500)->Unit(benchmark::kMillisecond)->UseRealTime();

// The renderer under the patch drawing and compositing every frame, changed or not, as the filter does.
void BM_ScriptRendererEveryFrame1080p(benchmark::State& state) {
  std::string script;
  xpl_read_file(scriptPath(), script);
  ScriptRenderer renderer;
  if (!renderer.load(script)) {
    state.SkipWithError("libass read no script");
    return;
  }
  long long frame = 0;
  const long long framesInScript = static_cast<long long>(kEvents) * kSlotMs * kFrameRate / 1000;
  for (auto _ : state) {
    const auto milliseconds =
        static_cast<long long>(static_cast<double>(frame++ % framesInScript) * 1000 / kFrameRate);
    std::optional<Bitmap> picture = renderer.render(kWidth, kHeight, milliseconds);
    benchmark::DoNotOptimize(picture);
  }
  state.counters["fps"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ScriptRendererEveryFrame1080p)->Iterations(1500)->Unit(benchmark::kMillisecond)->UseRealTime();

// FFmpeg's subtitles filter over the same 60 seconds, frames thrown away: frames a second of the whole
// run, start-up and reading the script included.
void BM_FFmpegSubtitles1080p(benchmark::State& state) {
  if (std::system("ffmpeg -hide_banner -filters 2>/dev/null | grep -q ' subtitles '") != 0) {
    state.SkipWithError("no ffmpeg with the subtitles filter");
    return;
  }
  constexpr int kFrames = 1500;
  const std::string command =
      "ffmpeg -nostdin -hide_banner -loglevel error -f lavfi -i color=c=black@0:s=" + std::to_string(kWidth) +
      "x" + std::to_string(kHeight) + ":r=25,format=bgra " + "-vf \"subtitles=filename='" + scriptPath() +
      "'\" -frames:v " + std::to_string(kFrames) + " -f null -";
  long long rendered = 0;
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) {
      state.SkipWithError("ffmpeg failed");
      break;
    }
    rendered += kFrames;
  }
  state.counters["fps"] = benchmark::Counter(static_cast<double>(rendered), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_FFmpegSubtitles1080p)->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace qva
