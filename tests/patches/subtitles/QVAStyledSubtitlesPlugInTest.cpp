#include <ass/ass.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "SubtitleCorpus.h"
#include "foundation/encodings/StringEncodings.h"
#include "patches/subtitles/QVAStyledSubtitlesPlugIn.h"
#include "patches/subtitles/StringEncodingMenu.h"
#include "support/PatchExecution.h"
#include "support/PixelProbe.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 360;

// Events overlapping in time, placed, turned, outlined, shadowed, boxed, in karaoke, a half-transparent
// drawing, and a font only the fonts folder offers.
constexpr char kStyledScript[] =
    "[Script Info]\n"
    "ScriptType: v4.00+\n"
    "PlayResX: 640\n"
    "PlayResY: 360\n"
    "\n"
    "[V4+ Styles]\n"
    "Format: Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, OutlineColour, BackColour, Bold, "
    "Italic, Underline, StrikeOut, ScaleX, ScaleY, Spacing, Angle, BorderStyle, Outline, Shadow, Alignment, "
    "MarginL, MarginR, MarginV, Encoding\n"
    "Style: Default,DejaVu Sans,28,&H00FFFFFF,&H000000FF,&H00000000,&H80000000,0,0,0,0,100,100,0,0,1,2,2,2,"
    "10,10,10,1\n"
    "Style: Boxed,Liberation Serif,24,&H0000FFFF,&H000000FF,&H00400000,&H60202020,1,1,0,0,100,100,0,0,3,3,0,"
    "8,10,10,10,1\n"
    "Style: Folder,FreeSerif,30,&H00FFFFFF,&H000000FF,&H00000000,&H00000000,0,0,0,0,100,100,0,0,1,0,0,5,"
    "10,10,10,1\n"
    "\n"
    "[Events]\n"
    "Format: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n"
    "Dialogue: 0,0:00:01.00,0:00:04.00,Default,,0,0,0,,Two lines at the\\Nbottom {\\c&H3050E0&}in colour\n"
    "Dialogue: 0,0:00:02.00,0:00:05.00,Boxed,,0,0,0,,A boxed title at the top\n"
    "Dialogue: 1,0:00:02.50,0:00:05.00,Default,,0,0,0,,{\\pos(160,180)\\frz15\\bord4\\3c&H00FF00&}Turned\n"
    "Dialogue: "
    "0,0:00:03.00,0:00:05.00,Default,,0,0,0,,{\\an5\\pos(480,150)\\k50}Ka{\\k50}ra{\\k100}o{\\k50}ke\n"
    "Dialogue: 2,0:00:03.00,0:00:05.00,Default,,0,0,0,,"
    "{\\an7\\pos(20,20)\\bord0\\shad0\\1c&H2040FF&\\1a&H80&\\p1}m 0 0 l 100 0 100 60 0 60{\\p0}\n"
    "Dialogue: 0,0:00:06.00,0:00:07.00,Folder,,0,0,0,,Fonts from the folder\n";

// A font outside the fonts configuration, for the fonts folder; tests that need it skip without it.
const std::filesystem::path kFolderFont = "/usr/share/fonts/truetype/freefont/FreeSerif.ttf";

// A premultiplied BGRA frame, rows packed.
struct Frame {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> bgra;

  const std::uint8_t* pixel(int x, int y) const {
    return &bgra[(static_cast<std::size_t>(y) * width + x) * 4];
  }
  long long ink() const {
    long long sum = 0;
    for (std::size_t i = 3; i < bgra.size(); i += 4) {
      sum += bgra[i];
    }
    return sum;
  }
};

// How two frames of the same size differ: the largest difference in any channel, the mean difference
// over the pixels either frame draws, and the ratio of their total alpha.
struct FrameDifference {
  int largest = 0;
  double meanOverDrawn = 0;
  double inkRatio = 1;
};

FrameDifference compare(const Frame& ours, const Frame& theirs) {
  FrameDifference difference;
  long long total = 0;
  long long drawn = 0;
  for (std::size_t i = 0; i < ours.bgra.size(); i += 4) {
    if (ours.bgra[i + 3] == 0 && theirs.bgra[i + 3] == 0) {
      continue;
    }
    ++drawn;
    for (std::size_t c = 0; c < 4; ++c) {
      const int channel = std::abs(int{ours.bgra[i + c]} - int{theirs.bgra[i + c]});
      difference.largest = std::max(difference.largest, channel);
      total += channel;
    }
  }
  difference.meanOverDrawn = drawn == 0 ? 0 : static_cast<double>(total) / static_cast<double>(drawn * 4);
  difference.inkRatio = theirs.ink() == 0
                            ? (ours.ink() == 0 ? 1 : 0)
                            : static_cast<double>(ours.ink()) / static_cast<double>(theirs.ink());
  return difference;
}

bool haveFFmpegFilters() {
  static const bool available = std::system(
                                    "ffmpeg -hide_banner -filters 2>/dev/null | grep -q ' subtitles ' && "
                                    "ffmpeg -hide_banner -filters 2>/dev/null | grep -q ' ass '") == 0;
  return available;
}

// One of FFmpeg's libass filters, with its options after the file name ("" or ":charenc=CP1252").
struct FFmpegFilter {
  std::string name;
  std::string options;
};

// The filter drawing the script at the time over a frame of the colour, as RGBA bytes; empty when
// FFmpeg fails.
std::vector<std::uint8_t> ffmpegRgba(const FFmpegFilter& filter, const std::filesystem::path& script,
                                     long long milliseconds, const std::string& background,
                                     const std::filesystem::path& output) {
  std::filesystem::remove(output);
  const std::string command =
      "ffmpeg -nostdin -hide_banner -loglevel error -f lavfi -i color=c=" + background +
      ":s=" + std::to_string(kWidth) + "x" + std::to_string(kHeight) +
      ":r=1000,format=rgba -vf \"setpts=PTS+" + std::to_string(milliseconds) + "," + filter.name +
      "=filename='" + script.string() + "'" + filter.options +
      "\" -frames:v 1 -f rawvideo -pix_fmt rgba -y '" + output.string() + "' 2>/dev/null";
  if (std::system(command.c_str()) != 0) {
    return {};
  }
  std::ifstream in(output, std::ios::binary);
  std::vector<std::uint8_t> rgba{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  return rgba.size() == static_cast<std::size_t>(kWidth) * kHeight * 4 ? rgba : std::vector<std::uint8_t>{};
}

// The filter's picture as premultiplied BGRA over transparency. The filters blend colour only and leave
// a frame's alpha as it was, so the script is drawn twice: over transparent black, which leaves the
// premultiplied colour, and over white, where the white that still shows through gives the alpha.
std::optional<Frame> ffmpegFrame(const FFmpegFilter& filter, const std::filesystem::path& script,
                                 long long milliseconds, const std::filesystem::path& scratch) {
  const std::vector<std::uint8_t> overBlack = ffmpegRgba(filter, script, milliseconds, "black@0", scratch);
  const std::vector<std::uint8_t> overWhite = ffmpegRgba(filter, script, milliseconds, "white", scratch);
  if (overBlack.empty() || overWhite.empty()) {
    return std::nullopt;
  }
  Frame frame{kWidth, kHeight, std::vector<std::uint8_t>(overBlack.size())};
  for (std::size_t i = 0; i < overBlack.size(); i += 4) {
    int showingThrough = 0;
    for (std::size_t c = 0; c < 3; ++c) {
      showingThrough += overWhite[i + c] - overBlack[i + c];
    }
    frame.bgra[i] = overBlack[i + 2];
    frame.bgra[i + 1] = overBlack[i + 1];
    frame.bgra[i + 2] = overBlack[i];
    frame.bgra[i + 3] = static_cast<std::uint8_t>(std::clamp(255 - (showingThrough + 1) / 3, 0, 255));
  }
  return frame;
}

class StyledSubtitlesTest : public PatchTest<QVAStyledSubtitlesPlugIn> {
 protected:
  void SetUp() override {
    std::ofstream(folder_ / "styled.ass", std::ios::binary) << kStyledScript;
    context_.setCompositionPath((folder_ / "show.qvc").string());
    context_.setViewport(PixelSize{kWidth, kHeight});
  }

  ImageRef image() const { return patch_.findOutputPort("outputImage")->value.imageValue(); }
  std::uint32_t eventCount() const { return patch_.findOutputPort("outputEventCount")->value.indexValue(); }

  // The patch's picture at the time, rows packed; empty without an image.
  Frame render(double seconds) {
    patch_.setInputValue("inputMovieTime", Value(seconds));
    executeOnce(patch_, context_);
    if (image() == nullptr) {
      return Frame{};
    }
    const std::optional<PixelBufferView> view = image()->pixelBuffer();
    EXPECT_TRUE(view.has_value());
    return Frame{view->width, view->height, packedBytes(*view)};
  }
  // FFmpeg's picture of the script at the time, drawn by the filter.
  std::optional<Frame> ffmpeg(const FFmpegFilter& filter, long long milliseconds,
                              const std::filesystem::path& script = {}) {
    return ffmpegFrame(filter, script.empty() ? folder_ / "styled.ass" : script, milliseconds,
                       folder_ / "ffmpeg.rgba");
  }

  TemporaryFolder folder_{"styled-subtitles"};
};

TEST_F(StyledSubtitlesTest, ClassOffersFileTimeEncodingAndFontsAndGivesImageAndCount) {
  const PatchClass& c = QVAStyledSubtitlesPlugIn::patchClass();
  EXPECT_EQ(c.className, "QVAStyledSubtitlesPlugIn");
  EXPECT_EQ(c.name, "QVA Styled Subtitles");
  EXPECT_EQ(c.sortedPropertyPortKeys,
            (std::vector<std::string>{"inputSubtitleFile", "inputMovieTime", "inputStringEncoding",
                                      "inputFontsFolder", "outputImage", "outputEventCount"}));
  const PortAttributes* menu = c.attributesForPropertyPortWithKey("inputStringEncoding");
  ASSERT_NE(menu, nullptr);
  EXPECT_EQ(menu->menuItems, StringEncodings::localizedNames());
}

// Against libass's own reading of the file (FFmpeg's ass filter) the pictures agree to rounding; the
// subtitles filter reads the script through FFmpeg's demuxer and decoder, which moves glyph edges by
// parts of a pixel, so against it the pictures agree in total and on average.
TEST_F(StyledSubtitlesTest, FramesMatchFFmpegsLibassFilters) {
  if (!haveFFmpegFilters()) {
    GTEST_SKIP() << "no ffmpeg with the ass and subtitles filters";
  }
  patch_.setInputValue("inputSubtitleFile", Value("styled.ass"));
  for (long long milliseconds : {1500LL, 2200LL, 2750LL, 3250LL, 3600LL, 4500LL}) {
    SCOPED_TRACE(milliseconds);
    const Frame ours = render(static_cast<double>(milliseconds) / 1000.0);
    ASSERT_EQ(ours.width, kWidth);
    ASSERT_EQ(ours.height, kHeight);
    EXPECT_GT(ours.ink(), 255 * 5000);

    const std::optional<Frame> libass = ffmpeg({"ass", ""}, milliseconds);
    ASSERT_TRUE(libass);
    EXPECT_LE(compare(ours, *libass).largest, 3);
    const std::optional<Frame> subtitles = ffmpeg({"subtitles", ""}, milliseconds);
    ASSERT_TRUE(subtitles);
    const FrameDifference difference = compare(ours, *subtitles);
    EXPECT_NEAR(difference.inkRatio, 1.0, 0.01);
    EXPECT_LT(difference.meanOverDrawn, 5.0);
  }
  EXPECT_TRUE(hostLog_.empty()) << hostLog_.front();
}

TEST_F(StyledSubtitlesTest, PicturesArePremultipliedBgraOverTransparency) {
  patch_.setInputValue("inputSubtitleFile", Value("styled.ass"));
  Frame frame = render(0.5);
  ASSERT_EQ(frame.width, kWidth);
  EXPECT_EQ(frame.ink(), 0);
  EXPECT_EQ(eventCount(), 0u);

  frame = render(3.25);
  EXPECT_EQ(eventCount(), 5u);
  // Inside the drawing: red 255, green 64, blue 32 at half opacity (transparency 0x80).
  const std::uint8_t* drawing = frame.pixel(60, 50);
  for (const int channel : {0, 1, 2, 3}) {
    EXPECT_NEAR(drawing[channel], (std::array{16, 32, 127, 127})[channel], 1) << channel;
  }
  // Every pixel is valid premultiplied colour.
  for (std::size_t i = 0; i < frame.bgra.size(); i += 4) {
    ASSERT_LE(std::max({frame.bgra[i], frame.bgra[i + 1], frame.bgra[i + 2]}), frame.bgra[i + 3]) << i / 4;
  }
  // The box of the top title is opaque dark blue where no letter covers it.
  const std::uint8_t* box = frame.pixel(kWidth / 2, 8);
  EXPECT_EQ(box[3], 255);
  EXPECT_EQ(box[0], 64);
  EXPECT_EQ(box[2], 0);

  render(4.5);
  EXPECT_EQ(eventCount(), 4u);
  render(5.0);  // an event's end is not part of it
  EXPECT_EQ(eventCount(), 0u);
}

TEST_F(StyledSubtitlesTest, AnUnchangedPictureKeepsItsImageAndTheViewportSetsTheSize) {
  patch_.setInputValue("inputSubtitleFile", Value("styled.ass"));
  render(1.2);
  const ImageRef first = image();
  ASSERT_NE(first, nullptr);
  render(1.7);
  EXPECT_EQ(image(), first);
  render(2.2);
  EXPECT_NE(image(), first);

  context_.setViewport(PixelSize{320, 180});
  executeOnce(patch_, context_);
  ASSERT_NE(image(), nullptr);
  EXPECT_EQ(image()->width(), 320);
  EXPECT_EQ(image()->height(), 180);
  const Frame small = render(2.3);
  EXPECT_GT(small.ink(), 0);
}

TEST_F(StyledSubtitlesTest, FontsComeFromTheFontsFolderToo) {
  if (!std::filesystem::exists(kFolderFont) || !haveFFmpegFilters()) {
    GTEST_SKIP() << "needs " << kFolderFont << " and ffmpeg";
  }
  std::filesystem::create_directories(folder_ / "fonts");
  std::filesystem::copy_file(kFolderFont, folder_ / "fonts" / kFolderFont.filename());
  patch_.setInputValue("inputSubtitleFile", Value("styled.ass"));
  const Frame fallback = render(6.5);
  patch_.setInputValue("inputFontsFolder", Value("fonts"));
  const Frame folderFont = render(6.6);
  EXPECT_GT(compare(fallback, folderFont).largest, 200);
  const std::optional<Frame> libass =
      ffmpeg({"ass", ":fontsdir='" + (folder_ / "fonts").string() + "'"}, 6600);
  ASSERT_TRUE(libass);
  EXPECT_LE(compare(folderFont, *libass).largest, 3);
}

TEST_F(StyledSubtitlesTest, UnreadableScriptsAndOddTimesGiveNoPictureAndNoFailure) {
  std::string garbage;
  for (int i = 0; i < 100000; ++i) {
    garbage.push_back(static_cast<char>(i * 7919 % 251));
  }
  std::ofstream(folder_ / "garbage.ass", std::ios::binary) << garbage;
  for (const std::string name : {"missing.ass", "garbage.ass"}) {
    const std::size_t logged = hostLog_.size();
    patch_.setInputValue("inputSubtitleFile", Value(name));
    render(1.0);
    ASSERT_EQ(hostLog_.size(), logged + 1);
    EXPECT_EQ(hostLog_.back(), "ERROR opening subtitle file: " + (folder_ / name).string());
    EXPECT_EQ(image(), nullptr);
    EXPECT_EQ(eventCount(), 0u);
  }

  patch_.setInputValue("inputSubtitleFile", Value("styled.ass"));
  for (double time : {-1.0, std::nan(""), std::numeric_limits<double>::infinity(), 1e300}) {
    EXPECT_EQ(render(time).ink(), 0) << time;
    EXPECT_EQ(eventCount(), 0u);
  }
  context_.setViewport(PixelSize{0, 0});
  render(1.5);
  EXPECT_EQ(image(), nullptr);
  patch_.setInputValue("inputSubtitleFile", Value(""));
  render(1.6);
  EXPECT_EQ(image(), nullptr);
  EXPECT_EQ(hostLog_.size(), 2u);
}

class StyledSubtitlesCorpus : public StyledSubtitlesTest,
                              public ::testing::WithParamInterface<CorpusScript> {};

// At the middle of the first, a middle and the last event the script's picture matches FFmpeg's: the ass
// filter's where it reads the script (UTF-8 only), else the subtitles filter's, told the code page where
// the script has no byte-order mark.
TEST_P(StyledSubtitlesCorpus, RendersLikeFFmpeg) {
  const CorpusScript& script = GetParam();
  const std::filesystem::path path = script.path();
  if (!std::filesystem::exists(path) || !haveFFmpegFilters()) {
    GTEST_SKIP() << "needs " << path << " and ffmpeg";
  }
  const LibassTrack libass(script);
  ASSERT_NE(libass.track, nullptr);
  const std::vector<long long> middles = libass.eventMiddles();
  ASSERT_FALSE(middles.empty());
  const std::string codepage = script.libassCodepage == nullptr ? "" : script.libassCodepage;
  const FFmpegFilter filter =
      codepage.empty() ? FFmpegFilter{"ass", ""}
                       : FFmpegFilter{"subtitles", codepage == "WINDOWS-1252" ? ":charenc=CP1252" : ""};

  patch_.setInputValue("inputSubtitleFile", Value(path.string()));
  patch_.setInputValue("inputStringEncoding", Value(StringEncodingMenu::indexForEncoding(script.encoding)));
  for (long long milliseconds : {middles.front(), middles[middles.size() / 2], middles.back()}) {
    SCOPED_TRACE(milliseconds);
    const Frame ours = render(static_cast<double>(milliseconds) / 1000.0);
    ASSERT_EQ(ours.width, kWidth);
    EXPECT_GT(eventCount(), 0u);
    const std::optional<Frame> theirs = ffmpeg(filter, milliseconds, path);
    ASSERT_TRUE(theirs);
    const FrameDifference difference = compare(ours, *theirs);
    if (filter.name == "ass") {
      EXPECT_LE(difference.largest, 3);
    } else {
      EXPECT_NEAR(difference.inkRatio, 1.0, 0.02);
      EXPECT_LT(difference.meanOverDrawn, 6.0);
    }
  }
  EXPECT_TRUE(hostLog_.empty()) << hostLog_.front();
}

INSTANTIATE_TEST_SUITE_P(RealScripts, StyledSubtitlesCorpus, ::testing::ValuesIn(kCorpusScripts),
                         corpusTestName);

}  // namespace
}  // namespace qva
