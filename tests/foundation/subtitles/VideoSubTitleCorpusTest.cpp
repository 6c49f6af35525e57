#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "foundation/subtitles/VideoSubTitle.h"

namespace qva {
namespace {

std::filesystem::path corpusFolder() {
  return std::filesystem::path(QVA_CORPUS_DIR) / "ssa";
}

// Every sample script is read, its entries each with a style and found at their start.
TEST(VideoSubTitleCorpus, EverySampleScriptParses) {
  if (!std::filesystem::is_directory(corpusFolder())) {
    GTEST_SKIP() << "no subtitle corpus at " << corpusFolder();
  }
  std::size_t parsedFiles = 0;
  for (const auto& item : std::filesystem::directory_iterator(corpusFolder())) {
    SCOPED_TRACE(item.path().filename().string());
    VideoSubTitleArray vsa;
    std::string failure;
    ASSERT_EQ(videoSubTitle_readFromFile(item.path().string(), vsa, 60, &failure), 0);
    ASSERT_NE(vsa.m_array, nullptr) << failure;
    ++parsedFiles;
    ASSERT_GT(vsa.m_count, 0u);
    for (std::uint32_t i = 0; i < vsa.m_count; ++i) {
      const VideoSubTitleEntry& entry = vsa.m_array[i];
      EXPECT_NE(entry.m_style, nullptr);
      if (entry.m_start_ms <= entry.m_end_ms) {
        EXPECT_LE(videoSubTitle_findEntryByTime(vsa, entry.m_start_ms, false), i);
      }
    }
  }
  EXPECT_GE(parsedFiles, 3u);
}

TEST(VideoSubTitleCorpus, KnownScriptsGiveTheirEntries) {
  const std::filesystem::path hellboy = corpusFolder() / "subsparser-HellBoy_2_The_Golden_Army.ssa";
  if (!std::filesystem::exists(hellboy)) {
    GTEST_SKIP() << "no subtitle corpus at " << corpusFolder();
  }
  VideoSubTitleArray vsa;
  ASSERT_EQ(videoSubTitle_readFromFile(hellboy.string(), vsa, 60), 0);
  ASSERT_EQ(vsa.m_count, 849u);
  EXPECT_EQ(vsa.m_array[0].m_start_ms, 82760u);
  EXPECT_EQ(vsa.m_array[0].m_end_ms, 86240u);
  EXPECT_EQ(vsa.m_array[0].m_text, "Son, will you turn off that wretched puppet?");
  EXPECT_EQ(vsa.m_array[0].m_style->m_font_name, "Arial");
  EXPECT_EQ(videoSubTitle_findEntryByTime(vsa, 87000, true), 1u);
  videoSubTitle_freeArray(vsa);

  // Its dialogue lines name "*Default", the script's "Default" written the old way.
  ASSERT_EQ(videoSubTitle_readFromFile((corpusFolder() / "subsparser-HP2.ssa").string(), vsa, 60), 0);
  ASSERT_EQ(vsa.m_count, 622u);
  EXPECT_EQ(vsa.m_array[0].m_style->m_font_name, "Arial Narrow");
}

}  // namespace
}  // namespace qva
