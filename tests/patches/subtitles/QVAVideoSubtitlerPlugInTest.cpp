#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "foundation/encodings/StringEncodings.h"
#include "patches/subtitles/QVAVideoSubtitlerPlugIn.h"
#include "support/PatchExecution.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

constexpr char kScript[] =
    "[V4 Styles]\n"
    "Style: Default,Arial Narrow,28.7,65535,0,0,0,0,0,1,1,1,2,30,30,30,0,0\n"
    "Style: Red,Tahoma,40,255,0,0,0,0,0,1,1,1,2,30,30,30,0,0\n"
    "[Events]\n"
    "Dialogue: Marked=0,0:00:01.00,0:00:04.50,Default,,0000,0000,0000,,Hello, world\n"
    "Dialogue: Marked=0,0:00:05.00,0:00:06.00,Default,,0000,0000,0000,,One\\nTwo\\NThree\n"
    "Dialogue: Marked=0,0:00:07.00,0:00:08.00,Red,,0000,0000,0000,,caf\xe9\n";

class VideoSubtitlerTest : public PatchTest<QVAVideoSubtitlerPlugIn> {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(folder_ / "shows");
    std::ofstream(folder_ / "shows" / "script one.ssa", std::ios::binary) << kScript;
    context_.setCompositionPath((folder_ / "shows" / "show.qvc").string());
  }

  void run(double movieTime) {
    patch_.setInputValue("inputMovieTime", Value(movieTime));
    executeOnce(patch_, context_);
  }
  void chooseEncoding(const char* name) {
    patch_.setInputValue("inputStringEncoding", Value(QVAVideoSubtitlerPlugIn::indexForStringEncoding(name)));
  }
  Value output(const std::string& key) const { return patch_.findOutputPort(key)->value; }
  std::string subtitle() const { return output("outputSubtitle").stringValue(); }

  TemporaryFolder folder_{"subtitler"};
};

TEST_F(VideoSubtitlerTest, ClassOffersEveryEncodingByPosition) {
  const PatchClass& c = QVAVideoSubtitlerPlugIn::patchClass();
  EXPECT_EQ(c.name, "QVA Video Subtitler");
  EXPECT_EQ(c.executionMode, ExecutionMode::Provider);
  EXPECT_EQ(c.timeMode, TimeMode::Idle);
  const PortAttributes* menu = c.attributesForPropertyPortWithKey("inputStringEncoding");
  ASSERT_NE(menu, nullptr);
  ASSERT_GT(menu->menuItems.size(), 10u);
  EXPECT_EQ(menu->menuItems, StringEncodings::localizedNames());
  EXPECT_EQ(menu->maximum, static_cast<double>(menu->menuItems.size() - 1));
  for (const char* name : {"UTF-8", "ISO-8859-1", "UTF-16"}) {
    const std::uint32_t index = QVAVideoSubtitlerPlugIn::indexForStringEncoding(name);
    ASSERT_LT(index, menu->menuItems.size()) << name;
    EXPECT_EQ(QVAVideoSubtitlerPlugIn::stringEncodingForIndex(index), name);
  }
  EXPECT_EQ(QVAVideoSubtitlerPlugIn::indexForStringEncoding("no such encoding"), 0xFFFFFFFFu);
  EXPECT_FALSE(
      QVAVideoSubtitlerPlugIn::stringEncodingForIndex(static_cast<std::uint32_t>(menu->menuItems.size())));
}

TEST_F(VideoSubtitlerTest, ShowsTheEntryAtTheMovieTimeWithItsStyle) {
  patch_.setInputValue("inputSubtitleFile", Value("script one.ssa"));
  chooseEncoding("UTF-8");
  run(4.5);
  EXPECT_TRUE(hostLog_.empty()) << hostLog_.front();
  EXPECT_EQ(subtitle(), "Hello, world");
  EXPECT_EQ(output("outputFontName").stringValue(), "Arial Narrow");
  EXPECT_EQ(output("outputFontSize").indexValue(), 28u);
  EXPECT_EQ(output("outputFontColor").colorValue(), (Color{1, 1, 0, 1}));

  run(4.501);
  EXPECT_EQ(subtitle(), "");
  run(5.5);
  EXPECT_EQ(subtitle(), "One\nTwo\\NThree");
  run(7.5);  // invalid UTF-8: no text, but the new style still applies
  EXPECT_EQ(subtitle(), "");
  EXPECT_EQ(output("outputFontName").stringValue(), "Tahoma");
  EXPECT_EQ(output("outputFontSize").indexValue(), 40u);
  EXPECT_EQ(output("outputFontColor").colorValue(), (Color{1, 0, 0, 1}));
}

TEST_F(VideoSubtitlerTest, EncodingAppliesFromTheNextEntryAndSeekingBackIntoTheSameEntryStaysEmpty) {
  patch_.setInputValue("inputSubtitleFile", Value((folder_ / "shows" / "script one.ssa").string()));
  chooseEncoding("UTF-8");
  run(7.2);
  EXPECT_EQ(subtitle(), "");
  chooseEncoding("ISO-8859-1");
  run(7.4);  // same entry: not decoded again
  EXPECT_EQ(subtitle(), "");
  run(1.0);
  EXPECT_EQ(subtitle(), "Hello, world");
  run(7.6);
  EXPECT_EQ(subtitle(), "caf\u00e9");

  run(6.5);  // a gap, then back into the entry shown last
  EXPECT_EQ(subtitle(), "");
  run(7.7);
  EXPECT_EQ(subtitle(), "");
  run(2.0);
  EXPECT_EQ(subtitle(), "Hello, world");
}

TEST_F(VideoSubtitlerTest, AByteOrderMarkOverridesTheChosenEncoding) {
  // "Caf\u00e9" as UTF-16 big-endian after its mark; a Western choice would misread every byte.
  std::string script = "\xFE\xFF";
  for (char c : std::string("Style: Default,Arial,20,255,0,0,0,0,0,1,1,1,2,1,1,1,0,0\n"
                            "Dialogue: 0,0:00:01.00,0:00:02.00,Default,,0,0,0,,Caf\xE9\n")) {
    script += {'\0', c};
  }
  std::ofstream(folder_ / "shows" / "marked.ssa", std::ios::binary) << script;
  patch_.setInputValue("inputSubtitleFile", Value("marked.ssa"));
  chooseEncoding("Western (Windows Latin 1)");
  run(1.5);
  EXPECT_EQ(subtitle(), "Caf\u00e9");
}

TEST_F(VideoSubtitlerTest, UnreadableOrBrokenScriptsAreLoggedAndIgnored) {
  patch_.setInputValue("inputSubtitleFile", Value("script one.ssa"));
  run(1.0);
  EXPECT_EQ(subtitle(), "Hello, world");

  patch_.setInputValue("inputSubtitleFile", Value("missing.ssa"));
  run(5.5);
  ASSERT_EQ(hostLog_.size(), 1u);
  EXPECT_EQ(hostLog_[0], "ERROR opening subtitle file: " + (folder_ / "shows" / "missing.ssa").string());
  run(5.6);  // no entries: time changes are ignored and the outputs keep their values
  EXPECT_EQ(subtitle(), "Hello, world");
  EXPECT_EQ(output("outputFontName").stringValue(), "Arial Narrow");

  std::ofstream(folder_ / "shows" / "broken.ssa") << "Dialogue: 0,0:00:01.00,0:00:02.00,Nobody,,0,0,0,,x\n";
  patch_.setInputValue("inputSubtitleFile", Value("broken.ssa"));
  run(1.5);
  ASSERT_EQ(hostLog_.size(), 3u);
  EXPECT_NE(hostLog_[2].find("unknown style \"Nobody\""), std::string::npos) << hostLog_[2];

  // A readable script again: the first entry found sets every output.
  patch_.setInputValue("inputSubtitleFile", Value("script one.ssa"));
  run(7.5);
  EXPECT_EQ(output("outputFontName").stringValue(), "Tahoma");
}

}  // namespace
}  // namespace qva
