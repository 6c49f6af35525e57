#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>
#include <thread>
#include <vector>

#include "foundation/media/MemoryMovieSource.h"
#include "foundation/media/MovieFile.h"
#include "support/TemporaryFolder.h"
#include "support/TestMovies.h"

namespace qva {
namespace {

struct MovieCase {
  const char* name;
  const char* file;
  TestMovies::Recipe recipe;
  double rate;
};

std::ostream& operator<<(std::ostream& out, const MovieCase& movieCase) {
  return out << movieCase.name;
}

// Where frame i of a movie of the case starts, in seconds.
double frameStart(const MovieCase& movieCase, int i) {
  return movieCase.recipe.variable
             ? TestMovies::variableFrameStart(i, movieCase.rate, movieCase.recipe.frames)
             : i / movieCase.rate;
}

// The index of the frame a movie of the case shows at a time in seconds.
int expectedIndex(const MovieCase& movieCase, double seconds) {
  int index = 0;
  for (int i = 0; i < movieCase.recipe.frames; ++i) {
    if (frameStart(movieCase, i) <= seconds + 1e-9) {
      index = i;
    }
  }
  return index;
}

int indexAt(MovieFile& movie, double seconds) {
  const MovieFrame* frame = movie.frameForTime(static_cast<std::int64_t>(seconds * movie.timeScale()));
  if (frame == nullptr) {
    return -1;
  }
  EXPECT_EQ(frame->width, TestMovies::kWidth);
  EXPECT_EQ(frame->height, TestMovies::kHeight);
  return TestMovies::indexOf(frame->bytes, frame->rowBytes);
}

class MovieFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!TestMovies::available()) {
      GTEST_SKIP() << "no ffmpeg command";
    }
  }

  std::filesystem::path makeMovie(const std::string& name, const TestMovies::Recipe& recipe) {
    const auto path = folder_ / name;
    EXPECT_EQ(TestMovies::make(path, recipe), "");
    return path;
  }

  TemporaryFolder folder_{"movie-file"};
};

class MovieFileCodecTest : public MovieFileTest, public ::testing::WithParamInterface<MovieCase> {
 protected:
  void SetUp() override {
    MovieFileTest::SetUp();
    if (!IsSkipped()) {
      path_ = makeMovie(GetParam().file, GetParam().recipe);
    }
  }

  std::filesystem::path path_;
};

// Every frame is found at the middle of its time range playing forward, and after jumps in random
// order backwards and forwards, in each load mode.
TEST_P(MovieFileCodecTest, FindsTheFrameWhoseTimeRangeHoldsTheTime) {
  const MovieCase& movieCase = GetParam();
  for (const MovieLoadMode mode :
       {MovieLoadMode::PrerollOnly, MovieLoadMode::ForceIntoMemory, MovieLoadMode::Incremental}) {
    SCOPED_TRACE(static_cast<int>(mode));
    MovieFile::Opening opening = MovieFile::open(path_.string(), mode, 0.5);
    ASSERT_TRUE(opening.movie) << opening.error;
    MovieFile& movie = *opening.movie;
    const int frames = movieCase.recipe.frames;
    EXPECT_EQ(movie.frameCount(), frames);
    EXPECT_EQ(movie.width(), TestMovies::kWidth);
    const double seconds = static_cast<double>(movie.duration()) / movie.timeScale();
    EXPECT_GT(seconds, frameStart(movieCase, frames - 1));
    EXPECT_NEAR(movie.frameRate(), frames / seconds, 1e-6);
    if (!movieCase.recipe.variable) {
      EXPECT_NEAR(movie.frameRate(), movieCase.rate, movieCase.rate * 0.01);
    }

    int seeksToFirstFrame = 0;
    for (int i = 0; i < frames; ++i) {
      // A quarter of a frame in, as the player asks.
      const double time = frameStart(movieCase, i) +
                          0.25 / movieCase.rate / (movieCase.recipe.variable && i >= frames / 2 ? 2 : 1);
      movie.task(std::llround(time * movie.timeScale()));
      ASSERT_EQ(indexAt(movie, time), i) << "at " << time;
      if (i == 0) {
        seeksToFirstFrame = movie.seekCount();
      }
    }
    // Past the first frame, playing forward decodes on without seeking.
    EXPECT_EQ(movie.seekCount(), seeksToFirstFrame);
    std::mt19937 random(7);
    std::uniform_real_distribution<double> anyTime(0, seconds * 0.999);
    for (int jump = 0; jump < 25; ++jump) {
      const double time = anyTime(random);
      ASSERT_EQ(indexAt(movie, time), expectedIndex(movieCase, time)) << "jump to " << time;
    }
    // Backwards frame by frame, the hardest order for a decoder.
    for (int i = frames - 1; i >= frames - 6; --i) {
      ASSERT_EQ(indexAt(movie, frameStart(movieCase, i) + 0.001), i);
    }
    // Past the end the last frame stays.
    EXPECT_EQ(indexAt(movie, seconds + 3), frames - 1);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Codecs, MovieFileCodecTest,
    ::testing::ValuesIn(std::vector<MovieCase>{
        {"H264At25", "h264.mp4", {60, "25", "-c:v libx264 -pix_fmt yuv420p -g 12 -bf 2"}, 25},
        {"ProResAt2997", "prores.mov", {40, "30000/1001", "-c:v prores_ks -profile:v 0"}, 30000.0 / 1001},
        {"MJPEGAt50", "mjpeg.avi", {50, "50", "-c:v mjpeg -q:v 3"}, 50},
        {"H264InTransportStream", "h264.ts", {50, "25", "-c:v libx264 -pix_fmt yuv420p -g 12 -bf 3"}, 25},
        {"VP9At25", "vp9.webm", {40, "25", "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -g 10"}, 25},
        {"H264Variable", "variable.mkv", {40, "25", "-c:v libx264 -pix_fmt yuv420p -g 10", true}, 25}}),
    [](const ::testing::TestParamInfo<MovieCase>& movie) { return std::string(movie.param.name); });

TEST_F(MovieFileTest, TruncatedMoviePlaysWhatIsLeftAndHoldsItsLastFrame) {
  const auto whole = makeMovie("whole.mov", {50, "25", "-c:v prores_ks -profile:v 0 -movflags +faststart"});
  const auto cut = folder_ / "cut.mov";
  std::filesystem::copy_file(whole, cut);
  std::filesystem::resize_file(cut, std::filesystem::file_size(whole) * 6 / 10);

  MovieFile::Opening opening = MovieFile::open(cut.string(), MovieLoadMode::PrerollOnly, 1);
  ASSERT_TRUE(opening.movie) << opening.error;
  MovieFile& movie = *opening.movie;
  EXPECT_EQ(indexAt(movie, 0.01), 0);
  EXPECT_EQ(indexAt(movie, 0.41), 10);
  // The index promises frames whose bytes are gone: the last decodable one shows, forward and after a
  // seek back into the missing part.
  const int last = indexAt(movie, 1.99);
  EXPECT_GT(last, 10);
  EXPECT_LT(last, 50);
  EXPECT_EQ(indexAt(movie, 0.13), 3);
  EXPECT_EQ(indexAt(movie, 1.95), last);
}

TEST_F(MovieFileTest, RefusesWhatIsNoPlayableMovieWithAReason) {
  std::ofstream(folder_ / "text.mov") << "this is not a movie\n";
  std::ofstream(folder_ / "empty.mp4").flush();
  ASSERT_EQ(TestMovies::ffmpeg("-f lavfi -i sine=d=0.5 -c:a pcm_s16le " + (folder_ / "sound.mkv").string()),
            "");
  ASSERT_EQ(TestMovies::ffmpeg("-f lavfi -i color=c=red:s=16384x16:d=0.1 -c:v ffv1 " +
                               (folder_ / "wide.mkv").string()),
            "");

  const auto refusal = [&](const std::string& name, MovieLoadMode mode = MovieLoadMode::PrerollOnly) {
    MovieFile::Opening opening = MovieFile::open((folder_ / name).string(), mode, 1);
    EXPECT_FALSE(opening.movie) << name;
    EXPECT_NE(opening.errorCode, 0) << name;
    return opening;
  };
  EXPECT_EQ(refusal("missing.mov").errorCode, MovieFile::kFileNotFound);
  EXPECT_NE(refusal("text.mov").error.find("not a movie"), std::string::npos);
  EXPECT_NE(refusal("empty.mp4", MovieLoadMode::ForceIntoMemory).error.find("not a movie"),
            std::string::npos);
  EXPECT_EQ(refusal("sound.mkv").error, "the movie has no video track");
  EXPECT_EQ(refusal("wide.mkv").error, "frames of 16384x16 pixels are refused (sides from 1 to 8192)");
  EXPECT_EQ(refusal("text.mov", static_cast<MovieLoadMode>(3)).errorCode, MovieFile::kBadLoadMode);
  // A folder is no movie either.
  EXPECT_EQ(MovieFile::open(folder_.path().string(), MovieLoadMode::PrerollOnly, 1).errorCode,
            MovieFile::kFileNotFound);
}

TEST_F(MovieFileTest, MemoryModesRefuseFilesAboveTheirLimit) {
  // Sparse: the file takes no disk space, and the source refuses it before reading a byte.
  const auto huge = folder_ / "huge.mov";
  std::ofstream(huge).flush();
  std::filesystem::resize_file(huge, MemoryMovieSource::kMaximumBytes + 1);
  for (const MovieLoadMode mode : {MovieLoadMode::ForceIntoMemory, MovieLoadMode::Incremental}) {
    MovieFile::Opening opening = MovieFile::open(huge.string(), mode, 1);
    EXPECT_FALSE(opening.movie);
    EXPECT_EQ(opening.errorCode, MovieFile::kOutOfMemory);
    EXPECT_EQ(opening.error, "the file's 1024 MiB are more than the 1024 MiB a movie may take in memory");
  }
}

TEST_F(MovieFileTest, IncrementalLoadingReadsAheadOfThePlayPosition) {
  const auto path = makeMovie("long.avi", {100, "25", "-c:v mjpeg -q:v 2"});
  const std::size_t size = std::filesystem::file_size(path);

  MovieFile::Opening opening = MovieFile::open(path.string(), MovieLoadMode::Incremental, 0.5);
  ASSERT_TRUE(opening.movie) << opening.error;
  MovieFile& movie = *opening.movie;
  EXPECT_EQ(movie.loadMode(), MovieLoadMode::Incremental);
  const std::size_t first = movie.bytesInMemory();
  EXPECT_GT(first, 0U);
  EXPECT_LT(first, size);
  // Playing the first two seconds triggers a step at 0.25 s and every half second after.
  for (int i = 0; i < 50; ++i) {
    movie.task(movie.timeScale() * i / 25);
    ASSERT_EQ(indexAt(movie, (i + 0.25) / 25), i);
  }
  for (int wait = 0; wait < 200 && movie.stepsLoaded() < 4; ++wait) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(movie.stepsLoaded(), 4U);
  EXPECT_GT(movie.bytesInMemory(), first);

  // A step as long as the movie loads it whole at once.
  MovieFile::Opening whole = MovieFile::open(path.string(), MovieLoadMode::Incremental, 4);
  ASSERT_TRUE(whole.movie);
  EXPECT_EQ(whole.movie->loadMode(), MovieLoadMode::ForceIntoMemory);
  EXPECT_EQ(whole.movie->bytesInMemory(), size);
  EXPECT_EQ(indexAt(*whole.movie, 3.97), 99);
}

}  // namespace
}  // namespace qva
