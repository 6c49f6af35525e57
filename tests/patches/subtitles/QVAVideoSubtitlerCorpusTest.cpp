#include <ass/ass.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "CorpusTestName.h"
#include "foundation/dispatch/TaskQueue.h"
#include "foundation/subtitles/VideoSubTitle.h"
#include "patches/subtitles/QVAVideoSubtitlerPlugIn.h"
#include "support/PatchExecution.h"

namespace qva {
namespace {

// A real script, the menu item a person would choose for it, and how libass is told the same.
struct CorpusScript {
  const char* file;
  const char* encoding;
  const char* libassCodepage;
};

// Test listings name the script rather than its bytes.
void PrintTo(const CorpusScript& script, std::ostream* out) {
  *out << script.file;
}

// Text as it reads on screen: override blocks removed and the lower-case line break applied, so that
// libass's event text and the subtitler's output (which keeps the tags) compare.
std::string withoutOverrideTags(const std::string& text) {
  std::string plain;
  bool inBlock = false;
  for (char c : text) {
    if (c == '{') {
      inBlock = true;
    } else if (c == '}' && inBlock) {
      inBlock = false;
    } else if (!inBlock) {
      plain.push_back(c);
    }
  }
  for (std::size_t at = plain.find("\\n"); at != std::string::npos; at = plain.find("\\n", at + 1)) {
    plain.replace(at, 2, "\n");
  }
  while (!plain.empty() && plain.back() == '\r') {
    plain.pop_back();
  }
  return plain;
}

struct LibassTrack {
  std::unique_ptr<ASS_Library, decltype(&ass_library_done)> library{ass_library_init(), ass_library_done};
  std::unique_ptr<ASS_Track, decltype(&ass_free_track)> track{nullptr, ass_free_track};
};

class VideoSubtitlerCorpus : public ::testing::TestWithParam<CorpusScript> {};

// At the middle of every event libass reads from the script, the subtitler shows the text of an event
// that libass shows at that time.
TEST_P(VideoSubtitlerCorpus, ShowsWhatLibassShowsAtTheMiddleOfEachEvent) {
  const std::filesystem::path path = std::filesystem::path(QVA_CORPUS_DIR) / "ssa" / GetParam().file;
  if (!std::filesystem::exists(path)) {
    GTEST_SKIP() << "no corpus script " << path;
  }
  LibassTrack libass;
  ass_set_message_cb(
      libass.library.get(), [](int, const char*, va_list, void*) {}, nullptr);
  libass.track.reset(ass_read_file(libass.library.get(), const_cast<char*>(path.c_str()),
                                   const_cast<char*>(GetParam().libassCodepage)));
  ASSERT_NE(libass.track, nullptr);
  const ASS_Track& track = *libass.track;

  VideoSubTitleArray vsa;
  std::string failure;
  ASSERT_EQ(videoSubTitle_readFromFile(path.string(), vsa, 60, &failure), 0);
  EXPECT_EQ(vsa.m_count, static_cast<std::uint32_t>(track.n_events)) << failure;
  videoSubTitle_freeArray(vsa);

  TaskQueue queue;
  ExecutionContext context(queue);
  QVAVideoSubtitlerPlugIn patch;
  std::vector<std::string> log;
  patch.setHostLog([&log](const std::string& line) { log.push_back(line); });
  patch.setInputValue("inputSubtitleFile", Value(path.string()));
  patch.setInputValue("inputStringEncoding",
                      Value(QVAVideoSubtitlerPlugIn::indexForStringEncoding(GetParam().encoding)));

  int checked = 0;
  for (int i = 0; i < track.n_events; ++i) {
    const ASS_Event& event = track.events[i];
    if (event.Duration <= 0) {
      continue;  // never on screen
    }
    const long long middle = event.Start + event.Duration / 2;
    patch.setInputValue("inputMovieTime", Value((static_cast<double>(middle) + 0.5) / 1000.0));
    executeOnce(patch, context);
    const std::string shown =
        withoutOverrideTags(patch.findOutputPort("outputSubtitle")->value.stringValue());
    std::vector<std::string> showing;
    for (int j = 0; j < track.n_events; ++j) {
      const ASS_Event& other = track.events[j];
      if (other.Start <= middle && middle <= other.Start + other.Duration) {
        showing.push_back(withoutOverrideTags(other.Text));
      }
    }
    EXPECT_NE(std::find(showing.begin(), showing.end(), shown), showing.end())
        << "at " << middle << " ms the subtitler shows \"" << shown << "\", libass \"" << showing.front()
        << "\"";
    ++checked;
  }
  EXPECT_TRUE(log.empty()) << log.front();
  EXPECT_GT(checked, 0);
}

INSTANTIATE_TEST_SUITE_P(
    RealScripts, VideoSubtitlerCorpus,
    ::testing::Values(
        CorpusScript{"astisub-example-in-carriage-return.ssa", "Unicode (UTF-8)", nullptr},
        CorpusScript{"astisub-example-in.ssa", "Unicode (UTF-8)", nullptr},
        CorpusScript{"pysubs2-subtitle_with_attached_images_aegisub.ass", "Unicode (UTF-8)", nullptr},
        CorpusScript{"subsparser-HP2.ssa", "Western (Windows Latin 1)", "WINDOWS-1252"},
        CorpusScript{"subsparser-HellBoy_2_The_Golden_Army.ssa", "Unicode (UTF-8)", nullptr},
        CorpusScript{"subsparser-Lost_and_Delirious_fr.ssa", "Western (Windows Latin 1)", "WINDOWS-1252"},
        CorpusScript{"subsrt-sample.ass", "Unicode (UTF-8)", nullptr},
        CorpusScript{"subsrt-sample.ssa", "Unicode (UTF-8)", nullptr},
        // The byte-order mark overrides the Western choice.
        CorpusScript{"titlekit-authentic.ass", "Western (Windows Latin 1)", "UTF-16"},
        CorpusScript{"titlekit-simple.ssa", "Unicode (UTF-8)", nullptr},
        CorpusScript{"titlekit-triple_plus-expected.ssa", "Unicode (UTF-8)", nullptr}),
    [](const ::testing::TestParamInfo<CorpusScript>& script) { return corpusTestName(script.param.file); });

}  // namespace
}  // namespace qva
