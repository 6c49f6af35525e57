#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "patches/media/QVAMovieImageProvider.h"
#include "patches/media/QVAMoviePlayerPlugIn.h"
#include "support/GLTest.h"
#include "support/PatchDriver.h"
#include "support/TemporaryFolder.h"
#include "support/TestMovies.h"

namespace qva {
namespace {

// The bits of a frame index read right to left, as a movie mirrored about its vertical axis shows them.
int mirroredIndex(int index) {
  int mirrored = 0;
  for (int bit = 0; bit < 12; ++bit) {
    if ((index >> bit) & 1) {
      mirrored |= 1 << (11 - bit);
    }
  }
  return mirrored;
}

class MoviePlayerTest : public GLTest {
 protected:
  static void SetUpTestSuite() {
    if (!TestMovies::available()) {
      return;
    }
    folder_ = new TemporaryFolder("movie-player");
    // Two seconds at 25 frames a second, and a second movie of other frames.
    TestMovies::make(*folder_ / "clip.mp4", {50, "25", "-c:v libx264 -pix_fmt yuv420p -g 10"});
    TestMovies::make(*folder_ / "other.mov", {10, "50", "-c:v mjpeg -q:v 2"});
  }
  static void TearDownTestSuite() {
    delete folder_;
    folder_ = nullptr;
  }

  void SetUp() override {
    if (folder_ == nullptr) {
      GTEST_SKIP() << "no ffmpeg command";
    }
    GLTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    driver_.context().setGLContext(gl_.get());
    driver_.context().setCompositionPath((*folder_ / "show.qvc").string());
  }
  void TearDown() override { driver_.stop(); }

  QVAMoviePlayerPlugIn& player() { return static_cast<QVAMoviePlayerPlugIn&>(driver_.patch()); }

  // "slow.avi": uncompressed and big enough that reading it into memory takes a while.
  static std::string makeSlowMovie() {
    const auto path = *folder_ / "slow.avi";
    if (std::filesystem::exists(path)) {
      return "";
    }
    return TestMovies::ffmpeg(
        "-f lavfi -i testsrc=s=1280x720:r=25 -frames:v 40 -c:v rawvideo -pix_fmt bgra " + path.string());
  }

  // Opens clip.mp4 at time 0, where it shows its first frame.
  void openClip() {
    driver_.set("inputMoviePath", Value("clip.mp4"));
    EXPECT_EQ(openAt(0), 0);
  }
  // The frame index shown at a time by an execution that starts an opening, once the movie it opens
  // has arrived: the execution itself shows none, as the movie is still on its way.
  int openAt(double time) {
    EXPECT_EQ(indexAt(time), -1);
    waitForOpening();
    return indexAt(time);
  }
  void waitForOpening() {
    EXPECT_TRUE(
        driver_.queue().pumpUntil(std::chrono::seconds(20), [this] { return !player().isOpeningMovie(); }));
  }

  // The frame index the output image shows at a time, -1 without one.
  int indexAt(double time) {
    driver_.frame(time);
    return shownIndex();
  }
  int shownIndex() {
    const ImageRef image = driver_.output("outputImage").imageValue();
    if (!image) {
      return -1;
    }
    const auto pixels = gl_->pixelsForImage(*image);
    return pixels ? TestMovies::indexOf(pixels->bytes, pixels->rowBytes) : -1;
  }
  bool shownUpright() {
    const auto pixels = gl_->pixelsForImage(*driver_.output("outputImage").imageValue());
    return TestMovies::upright(pixels->bytes, pixels->rowBytes);
  }

  static TemporaryFolder* folder_;
  PatchDriver driver_{std::make_unique<QVAMoviePlayerPlugIn>()};
};

TemporaryFolder* MoviePlayerTest::folder_ = nullptr;

TEST_F(MoviePlayerTest, ShowsTheFrameAQuarterFrameIntoThePatchTime) {
  openClip();
  EXPECT_DOUBLE_EQ(player().midFrame(), 0.01);
  EXPECT_DOUBLE_EQ(player().fps(), 25);
  EXPECT_DOUBLE_EQ(driver_.number("outputDuration"), 2.0);
  EXPECT_EQ(driver_.output("outputWidth").indexValue(), static_cast<std::uint32_t>(TestMovies::kWidth));
  EXPECT_EQ(driver_.output("outputHeight").indexValue(), static_cast<std::uint32_t>(TestMovies::kHeight));
  // 0.03 s plus the quarter frame lies in the second frame.
  EXPECT_EQ(indexAt(0.03), 1);
  EXPECT_NEAR(driver_.number("outputMovieTime"), 0.04, 1e-9);
  EXPECT_EQ(indexAt(0.029), 0);
  EXPECT_EQ(indexAt(1.0), 25);
  EXPECT_NEAR(player().movieNormalizedTime(), 1.01 / 2, 1e-6);
  EXPECT_EQ(player().movieBounds().width, TestMovies::kWidth);
  EXPECT_EQ(player().movieBounds().height, TestMovies::kHeight);
  // Backwards, as a host scrubbing the timeline does.
  EXPECT_EQ(indexAt(0.35), 9);
  EXPECT_EQ(indexAt(1.97), 49);
  EXPECT_TRUE(shownUpright());
  EXPECT_TRUE(driver_.processLog().empty());
}

TEST_F(MoviePlayerTest, SameFrameIndexRepublishesTheHeldTexture) {
  driver_.set("inputMoviePath", Value("clip.mp4"));
  openAt(0.4);
  const ImageRef first = driver_.output("outputImage").imageValue();
  driver_.frame(0.41);
  const ImageRef second = driver_.output("outputImage").imageValue();
  ASSERT_TRUE(first && second);
  EXPECT_NE(first, second);
  const auto& a = dynamic_cast<const QVAMovieImageProvider&>(*first);
  const auto& b = dynamic_cast<const QVAMovieImageProvider&>(*second);
  EXPECT_EQ(&a.frameTexture(), &b.frameTexture());
  driver_.frame(0.44);
  const auto& c = dynamic_cast<const QVAMovieImageProvider&>(*driver_.output("outputImage").imageValue());
  EXPECT_NE(&c.frameTexture(), &a.frameTexture());
}

TEST_F(MoviePlayerTest, SpeedFactorAndWantedDurationScaleMovieTime) {
  driver_.set("inputMoviePath", Value("clip.mp4"));
  driver_.set("inputDurationOrScale", Value(2.0));
  EXPECT_EQ(openAt(0), 0);
  // Twice as fast: 0.5 s of patch time is (0.5 + 0.01) × 2 s of movie.
  EXPECT_EQ(indexAt(0.5), 25);
  EXPECT_EQ(player().timeScale(), 2 * player().movie()->timeScale());

  // A two-second movie lasting four seconds plays at half speed.
  driver_.set("inputSpeedMode", Value(std::uint32_t{1}));
  driver_.set("inputDurationOrScale", Value(4.0));
  EXPECT_EQ(indexAt(1.0), 12);
  EXPECT_EQ(player().timeScale(), player().movie()->timeScale() / 2);
  driver_.set("inputDurationOrScale", Value(0.0));
  driver_.frame(1.5);
  EXPECT_EQ(player().timeScale(), 0);
}

TEST_F(MoviePlayerTest, PastTheEndHoldsTheLastFrameOrLoops) {
  driver_.set("inputMoviePath", Value("clip.mp4"));
  driver_.set("inputLoop", Value(false));
  EXPECT_EQ(openAt(0), 0);
  EXPECT_EQ(indexAt(2.5), 49);
  EXPECT_DOUBLE_EQ(driver_.number("outputMovieTime"), 2.0);
  driver_.set("inputLoop", Value(true));
  EXPECT_EQ(indexAt(2.6), 15);
  EXPECT_NEAR(driver_.number("outputMovieTime"), 0.61, 1e-6);
}

TEST_F(MoviePlayerTest, PauseResumeAndRewind) {
  openClip();
  EXPECT_EQ(indexAt(1.0), 25);
  driver_.set("inputPlay", Value(false));
  EXPECT_EQ(indexAt(1.2), 25);
  EXPECT_EQ(indexAt(3.0), 25);
  // Resuming goes on from where it paused (1.2 s), not from the frame shown.
  driver_.set("inputPlay", Value(true));
  EXPECT_EQ(indexAt(5.0), 30);
  EXPECT_EQ(indexAt(5.4), 40);
  driver_.set("inputRewind", Value(true));
  EXPECT_EQ(indexAt(6.0), 0);
  driver_.set("inputRewind", Value(false));
  EXPECT_EQ(indexAt(6.4), 10);
  // A rewind while paused waits for play.
  driver_.set("inputPlay", Value(false));
  EXPECT_EQ(indexAt(6.8), 10);
  driver_.set("inputRewind", Value(true));
  EXPECT_EQ(indexAt(7.0), 10);
  driver_.set("inputPlay", Value(true));
  EXPECT_EQ(indexAt(8.0), 0);
  EXPECT_EQ(indexAt(8.2), 5);
}

TEST_F(MoviePlayerTest, MirrorFlagsFlipTheImage) {
  openClip();
  EXPECT_EQ(indexAt(0.13), 3);
  driver_.set("inputMirrorXAxis", Value(true));
  EXPECT_EQ(indexAt(0.135), 3);
  EXPECT_FALSE(shownUpright());
  const auto& provider =
      dynamic_cast<const QVAMovieImageProvider&>(*driver_.output("outputImage").imageValue());
  EXPECT_EQ(provider.imageColorSpace(), "Generic RGB");
  EXPECT_EQ(provider.imageBounds().width, TestMovies::kWidth);
  // A mirrored frame is drawn, never handed over as the texture it is not.
  EXPECT_FALSE(provider.texture());
  driver_.set("inputMirrorXAxis", Value(false));
  driver_.set("inputMirrorYAxis", Value(true));
  EXPECT_EQ(indexAt(0.14), mirroredIndex(3));
  EXPECT_TRUE(shownUpright());
  driver_.set("inputMirrorXAxis", Value(true));
  EXPECT_EQ(indexAt(0.145), mirroredIndex(3));
  EXPECT_FALSE(shownUpright());
}

TEST_F(MoviePlayerTest, LoadModesReopenTheMovieAndVolumeIsKept) {
  driver_.set("inputMoviePath", Value((*folder_ / "clip.mp4").string()));
  driver_.set("inputLoadMode", Value(std::uint32_t{2}));
  driver_.set("inputLoadIncrement", Value(0.5));
  driver_.set("inputVolume", Value(0.5));
  EXPECT_EQ(openAt(0), 0);
  EXPECT_EQ(player().movie()->loadMode(), MovieLoadMode::Incremental);
  EXPECT_EQ(player().movie()->volume(), 128);
  EXPECT_EQ(indexAt(1.0), 25);
  // An increment as long as the movie loads it whole.
  driver_.set("inputLoadIncrement", Value(30.0));
  EXPECT_EQ(openAt(1.2), 30);
  EXPECT_EQ(player().movie()->loadMode(), MovieLoadMode::ForceIntoMemory);
  driver_.set("inputLoadMode", Value(std::uint32_t{0}));
  EXPECT_EQ(openAt(1.4), 35);
  EXPECT_EQ(player().movie()->loadMode(), MovieLoadMode::PrerollOnly);
  EXPECT_EQ(player().movie()->bytesInMemory(), 0U);
}

TEST_F(MoviePlayerTest, StoppingReleasesTheMovieAndStartingReopensIt) {
  driver_.set("inputMoviePath", Value("file://" + (*folder_ / "clip.mp4").string()));
  EXPECT_EQ(openAt(0), 0);
  EXPECT_EQ(indexAt(0.5), 12);
  driver_.stop();
  EXPECT_EQ(player().movie(), nullptr);
  driver_.start();
  // Opening shows its first frame at the time it opens.
  EXPECT_EQ(openAt(3.0), 0);
  EXPECT_EQ(indexAt(3.2), 5);
}

TEST_F(MoviePlayerTest, BadPathsLogAndShowNothing) {
  std::ofstream(*folder_ / "notes.mov") << "not a movie";
  openClip();
  driver_.set("inputMoviePath", Value("missing.mov"));
  EXPECT_EQ(openAt(0.02), -1);
  EXPECT_EQ(driver_.output("outputWidth").indexValue(), 0U);
  // A missing file is expected while a movie is on its way.
  EXPECT_TRUE(driver_.processLog().empty());
  driver_.set("inputMoviePath", Value("notes.mov"));
  EXPECT_EQ(openAt(0.04), -1);
  ASSERT_EQ(driver_.processLog().size(), 2U);
  EXPECT_NE(driver_.processLog()[0].find("notes.mov: not a movie"), std::string::npos);
  EXPECT_EQ(driver_.processLog()[1].rfind("memMovie_loadFilePath() returned error code; -", 0), 0U);
  EXPECT_EQ(driver_.output("outputWidth").indexValue(), 0U);
  EXPECT_TRUE(driver_.processLog()[1].ends_with("\n"));
}

TEST_F(MoviePlayerTest, PathChangingEveryFrameShowsEachMovie) {
  const char* paths[] = {"clip.mp4", "other.mov", "missing.mov"};
  for (int frame = 0; frame < 30; ++frame) {
    driver_.set("inputMoviePath", Value(paths[frame % 3]));
    const int shown = openAt(frame * 0.04);
    // Each movie opens at its first frame; opening a missing one leaves none.
    if (frame % 3 == 2) {
      EXPECT_EQ(shown, -1) << frame;
      EXPECT_EQ(player().movie(), nullptr);
      continue;
    }
    EXPECT_EQ(shown, 0) << frame;
    EXPECT_DOUBLE_EQ(player().movie()->frameRate(), frame % 3 == 0 ? 25 : 50) << frame;
  }
}

TEST_F(MoviePlayerTest, PathChangingEveryFrameNeverHoldsTheHostUp) {
  ASSERT_EQ(makeSlowMovie(), "");
  driver_.set("inputLoadMode", Value(std::uint32_t{1}));
  const char* paths[] = {"slow.avi", "clip.mp4", "slow.avi", "missing.mov", "other.mov"};
  int slowExecutes = 0;
  for (int frame = 0; frame < 40; ++frame) {
    driver_.set("inputMoviePath", Value(paths[frame % 5]));
    driver_.queue().pump();
    const auto start = std::chrono::steady_clock::now();
    driver_.frame(frame * 0.04);
    if (std::chrono::steady_clock::now() - start > std::chrono::milliseconds(50)) {
      ++slowExecutes;
    }
    // Whatever an older path's opening delivers meanwhile is never shown.
    EXPECT_EQ(shownIndex(), -1) << frame;
  }
  EXPECT_EQ(slowExecutes, 0);
  // The last path wins once its opening is done.
  waitForOpening();
  EXPECT_EQ(indexAt(2.0), 0);
  EXPECT_DOUBLE_EQ(player().movie()->frameRate(), 50);
  EXPECT_EQ(player().movie()->loadMode(), MovieLoadMode::ForceIntoMemory);
  EXPECT_TRUE(driver_.processLog().empty());
}

TEST_F(MoviePlayerTest, StoppingDropsAnOpeningInFlightWithoutWaiting) {
  ASSERT_EQ(makeSlowMovie(), "");
  driver_.set("inputLoadMode", Value(std::uint32_t{1}));
  driver_.set("inputMoviePath", Value("slow.avi"));
  driver_.frame(0);
  ASSERT_TRUE(player().isOpeningMovie());
  const auto start = std::chrono::steady_clock::now();
  driver_.stop();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
  EXPECT_FALSE(player().isOpeningMovie());
  // The movie finishing its opening later never reaches the stopped patch.
  driver_.queue().pumpFor(std::chrono::milliseconds(500));
  EXPECT_EQ(driver_.queue().backgroundTasksRun(), 0U);
  EXPECT_EQ(player().movie(), nullptr);
}

TEST_F(MoviePlayerTest, OfflineTheMovieShowsAtTheExecutionThatOpensIt) {
  driver_.context().setOffline(true);
  driver_.set("inputMoviePath", Value("clip.mp4"));
  EXPECT_EQ(indexAt(0), 0);
  EXPECT_FALSE(player().isOpeningMovie());
  driver_.set("inputMoviePath", Value("other.mov"));
  EXPECT_EQ(indexAt(0.5), 0);
  EXPECT_DOUBLE_EQ(player().movie()->frameRate(), 50);
}

TEST(MoviePlayerWithoutGLTest, LogsThatNoTextureContextCanBeMade) {
  PatchDriver driver(std::make_unique<QVAMoviePlayerPlugIn>());
  driver.set("inputMoviePath", Value("/tmp/any.mov"));
  driver.frame(0);
  EXPECT_EQ(driver.processLog(),
            (std::vector<std::string>{"ERROR creating movie texture context!",
                                      "ERROR opening movie -> OpenGL texture context failed!"}));
  EXPECT_FALSE(driver.output("outputImage").imageValue());
}

}  // namespace
}  // namespace qva
