// Reading a long SubStation Alpha script, compared with libass reading the same file, and looking up the
// subtitle of every frame of a two-hour programme.
#include <ass/ass.h>
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "GeneratedScript.h"
#include "foundation/subtitles/VideoSubTitle.h"

namespace {

constexpr int kEntries = 20000;
constexpr std::uint32_t kProgrammeMs = 2 * 60 * 60 * 1000;

// A script of kEntries entries spread over two hours, each shown for 80 % of its slot, in two styles.
const std::string& scriptPath() {
  static const qva::GeneratedScript script("qva-subtitle-bench.ssa", [](std::ostream& out) {
    out << "[Script Info]\nScriptType: v4.00\nPlayResX: 1920\nPlayResY: 1080\n\n[V4 Styles]\n"
           "Format: Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, TertiaryColour, BackColour, "
           "Bold, "
           "Italic, BorderStyle, Outline, Shadow, Alignment, MarginL, MarginR, MarginV, AlphaLevel, "
           "Encoding\n"
           "Style: Default,Arial,28,16777215,65535,65535,-2147483640,-1,0,1,3,0,2,30,30,30,0,0\n"
           "Style: Speaker,Tahoma,26,65535,65535,65535,-2147483640,0,0,1,3,0,2,30,30,30,0,0\n\n[Events]\n"
           "Format: Marked, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n";
    const std::uint32_t slot = kProgrammeMs / kEntries;
    for (int i = 0; i < kEntries; ++i) {
      const std::uint32_t start = static_cast<std::uint32_t>(i) * slot;
      out << "Dialogue: Marked=0," << qva::GeneratedScript::clock(start) << ","
          << qva::GeneratedScript::clock(start + slot * 4 / 5) << "," << (i % 3 == 0 ? "Speaker" : "Default")
          << ",,0000,0000,0000,,Line " << i
          << ", said with some words to read\\nand a second line of subtitle text\n";
    }
  });
  return script.path();
}

void BM_ParseScript(benchmark::State& state) {
  const std::string& path = scriptPath();
  for (auto _ : state) {
    qva::VideoSubTitleArray vsa;
    qva::videoSubTitle_readFromFile(path, vsa, 60);
    benchmark::DoNotOptimize(vsa.m_count);
    if (vsa.m_count != kEntries) {
      state.SkipWithError("entries missing");
    }
    qva::videoSubTitle_freeArray(vsa);
  }
  state.SetItemsProcessed(state.iterations() * kEntries);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(std::filesystem::file_size(path)));
}
BENCHMARK(BM_ParseScript)->Unit(benchmark::kMillisecond);

void BM_ParseScriptWithLibass(benchmark::State& state) {
  const std::string& path = scriptPath();
  ASS_Library* library = ass_library_init();
  ass_set_message_cb(
      library, [](int, const char*, va_list, void*) {}, nullptr);
  for (auto _ : state) {
    ASS_Track* track = ass_read_file(library, const_cast<char*>(path.c_str()), nullptr);
    if (track == nullptr || track->n_events != kEntries) {
      state.SkipWithError("libass did not read every entry");
    }
    benchmark::DoNotOptimize(track);
    if (track != nullptr) {
      ass_free_track(track);
    }
  }
  ass_library_done(library);
  state.SetItemsProcessed(state.iterations() * kEntries);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(std::filesystem::file_size(path)));
}
BENCHMARK(BM_ParseScriptWithLibass)->Unit(benchmark::kMillisecond);

// Every frame of the programme at 50 frames per second, in order, as the Video Subtitler asks.
void BM_LookUpEveryFrameWithHint(benchmark::State& state) {
  qva::VideoSubTitleArray vsa;
  qva::videoSubTitle_readFromFile(scriptPath(), vsa, 60);
  constexpr std::uint32_t kFrames = kProgrammeMs / 20;
  std::uint32_t shown = 0;
  for (auto _ : state) {
    vsa.m_current = qva::kVideoSubTitleNoEntry;
    shown = 0;
    for (std::uint32_t frame = 0; frame < kFrames; ++frame) {
      const std::uint32_t index = qva::videoSubTitle_findEntryByTime(vsa, frame * 20, true);
      if (index != qva::kVideoSubTitleNoEntry && index != vsa.m_current) {
        vsa.m_current = index;
        ++shown;
      }
    }
    benchmark::DoNotOptimize(shown);
  }
  if (shown != kEntries) {
    state.SkipWithError("entries missed");
  }
  state.SetItemsProcessed(state.iterations() * kFrames);
  qva::videoSubTitle_freeArray(vsa);
}
BENCHMARK(BM_LookUpEveryFrameWithHint)->Unit(benchmark::kMillisecond);

}  // namespace
