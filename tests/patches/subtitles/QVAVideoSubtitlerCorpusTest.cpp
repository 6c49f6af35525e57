#include <ass/ass.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "SubtitleCorpus.h"
#include "foundation/dispatch/TaskQueue.h"
#include "foundation/subtitles/VideoSubTitle.h"
#include "patches/subtitles/QVAVideoSubtitlerPlugIn.h"
#include "support/PatchExecution.h"

namespace qva {
namespace {

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

class VideoSubtitlerCorpus : public ::testing::TestWithParam<CorpusScript> {};

// At the middle of every event libass reads from the script, the subtitler shows the text of an event
// that libass shows at that time.
TEST_P(VideoSubtitlerCorpus, ShowsWhatLibassShowsAtTheMiddleOfEachEvent) {
  const std::filesystem::path path = GetParam().path();
  if (!std::filesystem::exists(path)) {
    GTEST_SKIP() << "no corpus script " << path;
  }
  const LibassTrack libass(GetParam());
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

  const std::vector<long long> middles = libass.eventMiddles();
  for (const long long middle : middles) {
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
  }
  EXPECT_TRUE(log.empty()) << log.front();
  EXPECT_FALSE(middles.empty());
}

INSTANTIATE_TEST_SUITE_P(RealScripts, VideoSubtitlerCorpus, ::testing::ValuesIn(kCorpusScripts),
                         corpusTestName);

}  // namespace
}  // namespace qva
