#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "foundation/media/MovieFrame.h"
#include "foundation/media/MovieLoadMode.h"

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct SwsContext;

namespace qva {

class IncrementalMovieLoader;
class MemoryMovieSource;

// A movie file's video track, decoded on demand: the frame whose time range holds a requested movie
// time, converted to BGRA. Times are in movie units (timeScale() a second) from the first frame on.
// Playing forward decodes on from the last frame; any other jump seeks to the key frame before the time
// and decodes up to it, so every frame is reached exactly whatever the order of requests.
class MovieFile {
 public:
  // Error codes of open(), as the movie player logs them; other failures give FFmpeg's negative codes.
  static constexpr int kFileNotFound = -43;
  static constexpr int kBadLoadMode = -50;
  static constexpr int kOutOfMemory = -108;
  // Frames wider or higher than this are refused.
  static constexpr int kMaximumSide = 8192;

  struct Opening {
    std::unique_ptr<MovieFile> movie;
    int errorCode = 0;
    // Why the movie did not open, for a log line.
    std::string error;
  };

  // Opens the file's first video track. Incremental loading loads steps of incrementSeconds (at least
  // a tenth of a second); it loads the whole file at once when that is no shorter than the movie.
  static Opening open(const std::string& path, MovieLoadMode mode, double incrementSeconds);
  ~MovieFile();
  MovieFile(const MovieFile&) = delete;
  MovieFile& operator=(const MovieFile&) = delete;

  std::int32_t timeScale() const { return timeScale_; }
  std::int64_t duration() const { return duration_; }
  // Frames a second: time scale × frame count ÷ duration; 0 for a movie without frames or duration.
  double frameRate() const { return frameRate_; }
  std::int64_t frameCount() const { return frameCount_; }
  int width() const { return width_; }
  int height() const { return height_; }
  // The mode in effect: incremental loading of a movie shorter than its step loads it whole.
  MovieLoadMode loadMode() const { return loadMode_; }

  // The frame shown at the time: the last one starting at or before it (the first frame before the
  // first, the last decodable one past the end). Null when no frame can be decoded. The frame stays
  // valid until the next call.
  const MovieFrame* frameForTime(std::int64_t time);
  // Gives background loading its due at the play position: in incremental mode, a step is loaded
  // whenever the position passes the middle of the steps loaded so far.
  void task(std::int64_t time);

  // Stored for a sound track; nothing plays sound yet.
  void setVolume(std::int16_t volume) { volume_ = volume; }
  std::int16_t volume() const { return volume_; }
  // Bytes in memory and steps loaded by the background thread (0 without them).
  std::size_t bytesInMemory() const;
  std::size_t stepsLoaded() const;
  // Seeks made so far, for tests and statistics.
  int seekCount() const { return seeks_; }

 private:
  MovieFile();
  // Opens the demuxer and decoder; an error text, or empty.
  std::string openStreams(const std::string& path, int& errorCode);
  void measure();
  std::int64_t toMovieTime(std::int64_t streamTime) const;
  std::int64_t toStreamTime(std::int64_t movieTime) const;
  // Seeks so that decoding starts at a key frame at or before the time, as the demuxer finds it.
  void seekBefore(std::int64_t time);
  // Seeks to the first packet of the file.
  void rewind();
  // Drops what the decoder holds, before a seek.
  void forgetDecoding();
  // The next frame in presentation order into frame; false at the end or on a fatal error.
  bool decodeNext(AVFrame* frame);
  // Decodes on until the following frame starts after the target (or none follows); the current frame
  // is then the last one at or before it.
  void decodeThrough(std::int64_t target);
  // The following frame becomes the current one.
  void takeFollowing();
  bool convert(const AVFrame* frame);

  std::unique_ptr<MemoryMovieSource> memory_;
  std::unique_ptr<IncrementalMovieLoader> loader_;
  AVFormatContext* format_ = nullptr;
  AVCodecContext* codec_ = nullptr;
  SwsContext* scaler_ = nullptr;
  AVPacket* packet_ = nullptr;
  // The frame before or at the last requested time, and the one after it (already decoded).
  AVFrame* current_ = nullptr;
  AVFrame* following_ = nullptr;
  bool haveCurrent_ = false;
  bool haveFollowing_ = false;
  bool endOfStream_ = false;
  bool drained_ = false;
  // Whether the demuxer has read on from where decoding stands (counting frames at opening).
  bool readAhead_ = false;
  int streamIndex_ = -1;
  std::int64_t streamStart_ = 0;
  std::int32_t timeScale_ = 0;
  std::int64_t duration_ = 0;
  std::int64_t frameCount_ = 0;
  double frameRate_ = 0;
  int width_ = 0;
  int height_ = 0;
  MovieLoadMode loadMode_ = MovieLoadMode::PrerollOnly;
  std::int16_t volume_ = 256;
  // Incremental loading: movie units per step, the time that triggers the next step.
  std::int64_t loadIncrement_ = 0;
  std::int64_t nextIncrement_ = 0;
  int seeks_ = 0;
  // The converted pixels of the current frame.
  std::uint8_t* pixels_ = nullptr;
  std::size_t pixelBytes_ = 0;
  MovieFrame frame_;
  std::int64_t convertedTime_ = INT64_MIN;
};

}  // namespace qva
