#include "foundation/media/MovieFile.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <utility>

#include "foundation/media/IncrementalMovieLoader.h"
#include "foundation/media/MemoryMovieSource.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace qva {

namespace {

// Requests up to this far past the current frame decode on instead of seeking.
constexpr double kDecodeAheadSeconds = 2.0;
// The smallest step of incremental loading, in seconds and in bytes.
constexpr double kMinimumIncrementSeconds = 0.1;
constexpr std::size_t kMinimumStepBytes = 4096;
// Files above this size are not read through at opening to count their frames.
constexpr std::int64_t kMaximumCountedBytes = std::int64_t{256} << 20;
// Decoding gives up after this many frames in a row fail.
constexpr int kMaximumDamagedFrames = 64;
// The movie time scale for streams whose time base is not a whole fraction of a second.
constexpr std::int32_t kFallbackTimeScale = 90000;

std::string errorText(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

std::int64_t presentationTime(const AVFrame* frame) {
  return frame->best_effort_timestamp != AV_NOPTS_VALUE ? frame->best_effort_timestamp : frame->pts;
}

// Opaque pixels stay as they are; frames with alpha are premultiplied as images are.
void premultiply(std::uint8_t* pixels, int width, int height, std::size_t rowBytes) {
  for (int y = 0; y < height; ++y) {
    std::uint8_t* pixel = pixels + static_cast<std::size_t>(y) * rowBytes;
    for (int x = 0; x < width; ++x, pixel += 4) {
      const unsigned alpha = pixel[3];
      for (int c = 0; c < 3; ++c) {
        pixel[c] = static_cast<std::uint8_t>((pixel[c] * alpha + 127) / 255);
      }
    }
  }
}

}  // namespace

MovieFile::MovieFile() = default;

MovieFile::~MovieFile() {
  // The loader thread goes first: it reads into the memory the source owns.
  loader_.reset();
  avformat_close_input(&format_);
  avcodec_free_context(&codec_);
  sws_freeContext(scaler_);
  av_packet_free(&packet_);
  av_frame_free(&current_);
  av_frame_free(&following_);
  av_free(pixels_);
}

MovieFile::Opening MovieFile::open(const std::string& path, MovieLoadMode mode, double incrementSeconds) {
  // Damaged and unusual files make the libraries talk on standard error; what matters comes back here.
  static const bool quiet = [] {
    av_log_set_level(AV_LOG_FATAL);
    return true;
  }();
  (void)quiet;
  if (mode != MovieLoadMode::PrerollOnly && mode != MovieLoadMode::ForceIntoMemory &&
      mode != MovieLoadMode::Incremental) {
    return {nullptr, kBadLoadMode,
            "load mode " + std::to_string(static_cast<int>(mode)) + " is not 0, 1 or 2"};
  }
  std::error_code noFile;
  if (!std::filesystem::is_regular_file(path, noFile)) {
    return {nullptr, kFileNotFound, "no such file"};
  }
  std::unique_ptr<MovieFile> movie(new MovieFile());
  movie->loadMode_ = mode;
  if (mode != MovieLoadMode::PrerollOnly) {
    MemoryMovieSource::Opening memory = MemoryMovieSource::open(path);
    if (!memory.source) {
      return {nullptr, memory.tooLarge ? kOutOfMemory : AVERROR(EIO), memory.error};
    }
    movie->memory_ = std::move(memory.source);
    if (mode == MovieLoadMode::ForceIntoMemory && !movie->memory_->loadThrough(movie->memory_->size())) {
      return {nullptr, AVERROR(EIO), "the file could not be read into memory"};
    }
  }
  int errorCode = 0;
  if (std::string error = movie->openStreams(path, errorCode); !error.empty()) {
    return {nullptr, errorCode, std::move(error)};
  }
  movie->measure();
  if (mode == MovieLoadMode::Incremental) {
    const double increment = std::max(incrementSeconds, kMinimumIncrementSeconds);
    const double seconds = static_cast<double>(movie->duration_) / movie->timeScale_;
    MemoryMovieSource& memory = *movie->memory_;
    if (increment >= seconds) {
      movie->loadMode_ = MovieLoadMode::ForceIntoMemory;
      if (!memory.loadThrough(memory.size())) {
        return {nullptr, AVERROR(EIO), "the file could not be read into memory"};
      }
    } else {
      movie->loadIncrement_ = static_cast<std::int64_t>(movie->timeScale_ * increment);
      const auto step = std::max(
          kMinimumStepBytes,
          static_cast<std::size_t>(std::ceil(static_cast<double>(memory.size()) * increment / seconds)));
      memory.loadThrough(step);
      movie->nextIncrement_ = movie->loadIncrement_ / 2;
      movie->loader_ = std::make_unique<IncrementalMovieLoader>(memory, step);
    }
  }
  return {std::move(movie), 0, {}};
}

std::string MovieFile::openStreams(const std::string& path, int& errorCode) {
  if (memory_) {
    format_ = avformat_alloc_context();
    if (format_ == nullptr) {
      errorCode = kOutOfMemory;
      return "out of memory";
    }
    format_->pb = memory_->ioContext();
    format_->flags |= AVFMT_FLAG_CUSTOM_IO;
  }
  // The path names the file for the demuxer's guess by extension; memory modes never open it again.
  if (const int opened = avformat_open_input(&format_, path.c_str(), nullptr, nullptr); opened < 0) {
    errorCode = opened;
    return "not a movie (" + errorText(opened) + ")";
  }
  if (const int found = avformat_find_stream_info(format_, nullptr); found < 0) {
    errorCode = found;
    return "not a movie (" + errorText(found) + ")";
  }
  for (unsigned i = 0; i < format_->nb_streams; ++i) {
    const AVStream* stream = format_->streams[i];
    if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
        !(stream->disposition & AV_DISPOSITION_ATTACHED_PIC)) {
      streamIndex_ = static_cast<int>(i);
      break;
    }
  }
  if (streamIndex_ < 0) {
    errorCode = AVERROR_STREAM_NOT_FOUND;
    return "the movie has no video track";
  }
  const AVStream* stream = format_->streams[streamIndex_];
  width_ = stream->codecpar->width;
  height_ = stream->codecpar->height;
  if (width_ < 1 || height_ < 1 || width_ > kMaximumSide || height_ > kMaximumSide) {
    errorCode = AVERROR(EFBIG);
    return "frames of " + std::to_string(width_) + "x" + std::to_string(height_) +
           " pixels are refused (sides from 1 to " + std::to_string(kMaximumSide) + ")";
  }
  const AVCodec* decoder = avcodec_find_decoder(stream->codecpar->codec_id);
  if (decoder == nullptr) {
    errorCode = AVERROR_DECODER_NOT_FOUND;
    return std::string("no decoder for the video codec ") + avcodec_get_name(stream->codecpar->codec_id);
  }
  codec_ = avcodec_alloc_context3(decoder);
  packet_ = av_packet_alloc();
  current_ = av_frame_alloc();
  following_ = av_frame_alloc();
  if (codec_ == nullptr || packet_ == nullptr || current_ == nullptr || following_ == nullptr) {
    errorCode = kOutOfMemory;
    return "out of memory";
  }
  avcodec_parameters_to_context(codec_, stream->codecpar);
  codec_->pkt_timebase = stream->time_base;
  codec_->thread_count = 0;
  if (const int opened = avcodec_open2(codec_, decoder, nullptr); opened < 0) {
    errorCode = opened;
    return "the video codec cannot be opened (" + errorText(opened) + ")";
  }
  return {};
}

void MovieFile::measure() {
  const AVStream* stream = format_->streams[streamIndex_];
  const AVRational base = stream->time_base;
  timeScale_ = base.num == 1 && base.den > 0 ? base.den : kFallbackTimeScale;
  streamStart_ = stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
  frameCount_ = stream->nb_frames;
  std::int64_t end = stream->duration != AV_NOPTS_VALUE ? streamStart_ + stream->duration : AV_NOPTS_VALUE;
  // Containers without a sample count (Matroska, raw streams) are counted packet by packet, unless
  // reading the whole file would hold up the opening too long.
  const std::int64_t fileSize = avio_size(format_->pb);
  std::int64_t lastEnd = AV_NOPTS_VALUE;
  if ((frameCount_ <= 0 || end == AV_NOPTS_VALUE) && fileSize >= 0 && fileSize <= kMaximumCountedBytes) {
    std::int64_t counted = 0;
    while (av_read_frame(format_, packet_) >= 0) {
      if (packet_->stream_index == streamIndex_) {
        ++counted;
        const std::int64_t time = packet_->pts != AV_NOPTS_VALUE ? packet_->pts : packet_->dts;
        if (time != AV_NOPTS_VALUE) {
          lastEnd = std::max(lastEnd, time + std::max<std::int64_t>(packet_->duration, 0));
        }
      }
      av_packet_unref(packet_);
    }
    // The first frame wanted is sought, wherever the count left the demuxer.
    readAhead_ = true;
    frameCount_ = frameCount_ > 0 ? frameCount_ : counted;
  }
  if (end == AV_NOPTS_VALUE) {
    end = format_->duration != AV_NOPTS_VALUE
              ? streamStart_ + av_rescale_q(format_->duration, AV_TIME_BASE_Q, base)
              : lastEnd;
  }
  if (frameCount_ <= 0 && end != AV_NOPTS_VALUE) {
    // Uncounted, the container's average rate tells how many frames the duration holds.
    const AVRational rate = stream->avg_frame_rate.num > 0 ? stream->avg_frame_rate : stream->r_frame_rate;
    if (rate.num > 0 && rate.den > 0) {
      frameCount_ = std::llround(av_q2d(rate) * static_cast<double>(end - streamStart_) * av_q2d(base));
    }
  }
  duration_ = end != AV_NOPTS_VALUE ? std::max<std::int64_t>(toMovieTime(end), 0) : 0;
  frameRate_ = frameCount_ > 0 && duration_ > 0
                   ? static_cast<double>(timeScale_) * static_cast<double>(frameCount_) /
                         static_cast<double>(duration_)
                   : 0.0;
}

std::int64_t MovieFile::toMovieTime(std::int64_t streamTime) const {
  return av_rescale_q(streamTime - streamStart_, format_->streams[streamIndex_]->time_base,
                      AVRational{1, timeScale_});
}

std::int64_t MovieFile::toStreamTime(std::int64_t movieTime) const {
  return streamStart_ +
         av_rescale_q(movieTime, AVRational{1, timeScale_}, format_->streams[streamIndex_]->time_base);
}

std::size_t MovieFile::bytesInMemory() const {
  return memory_ ? memory_->loadedBytes() : 0;
}

std::size_t MovieFile::stepsLoaded() const {
  return loader_ ? loader_->stepsLoaded() : 0;
}

void MovieFile::task(std::int64_t time) {
  if (loader_ && time >= nextIncrement_) {
    nextIncrement_ += loadIncrement_;
    loader_->post();
  }
}

void MovieFile::seekBefore(std::int64_t time) {
  forgetDecoding();
  if (av_seek_frame(format_, streamIndex_, time, AVSEEK_FLAG_BACKWARD) < 0) {
    rewind();
  }
}

void MovieFile::rewind() {
  forgetDecoding();
  // Streams without an index (transport and program streams) find their start only by bytes: a search
  // by time lands on the packets after it.
  if ((format_->iformat->flags & AVFMT_TS_DISCONT) && av_seek_frame(format_, -1, 0, AVSEEK_FLAG_BYTE) >= 0) {
    return;
  }
  av_seek_frame(format_, streamIndex_, streamStart_, AVSEEK_FLAG_BACKWARD);
}

void MovieFile::forgetDecoding() {
  ++seeks_;
  readAhead_ = false;
  avcodec_flush_buffers(codec_);
  haveCurrent_ = false;
  haveFollowing_ = false;
  endOfStream_ = false;
  drained_ = false;
}

bool MovieFile::decodeNext(AVFrame* frame) {
  const std::int64_t previous = haveCurrent_ ? presentationTime(current_) : AV_NOPTS_VALUE;
  av_frame_unref(frame);
  for (int damaged = 0;;) {
    const int received = avcodec_receive_frame(codec_, frame);
    if (received == 0) {
      if (presentationTime(frame) == AV_NOPTS_VALUE) {
        // A frame without a time follows the one before it.
        frame->best_effort_timestamp = previous == AV_NOPTS_VALUE ? streamStart_ : previous + 1;
      }
      return true;
    }
    if (received == AVERROR_EOF || (received == AVERROR(EAGAIN) && endOfStream_) ||
        (received != AVERROR(EAGAIN) && ++damaged > kMaximumDamagedFrames)) {
      drained_ = true;
      return false;
    }
    if (received != AVERROR(EAGAIN)) {
      // A frame that failed to decode is skipped; the next one may be whole.
      continue;
    }
    if (av_read_frame(format_, packet_) < 0) {
      // The end, or a truncated file: what the decoder holds still comes out.
      endOfStream_ = true;
      avcodec_send_packet(codec_, nullptr);
      continue;
    }
    if (packet_->stream_index == streamIndex_) {
      // A damaged packet is skipped; the frames after it decode as well as they can.
      avcodec_send_packet(codec_, packet_);
    }
    av_packet_unref(packet_);
  }
}

void MovieFile::decodeThrough(std::int64_t target) {
  for (;;) {
    if (!haveFollowing_) {
      if (!decodeNext(following_)) {
        return;
      }
      haveFollowing_ = true;
    }
    if (presentationTime(following_) > target) {
      return;
    }
    takeFollowing();
  }
}

void MovieFile::takeFollowing() {
  std::swap(current_, following_);
  haveCurrent_ = true;
  haveFollowing_ = false;
}

const MovieFrame* MovieFile::frameForTime(std::int64_t time) {
  const std::int64_t target = toStreamTime(std::max<std::int64_t>(time, 0));
  const std::int64_t decodeAhead =
      av_rescale_q(static_cast<std::int64_t>(kDecodeAheadSeconds * 1000), AVRational{1, 1000},
                   format_->streams[streamIndex_]->time_base);
  const bool started = haveCurrent_ || haveFollowing_ || endOfStream_ || readAhead_;
  // Past the last frame nothing is left to decode, however far the target lies.
  const bool ahead = haveCurrent_ && presentationTime(current_) <= target;
  bool decodeOn = started ? ahead && (target - presentationTime(current_) <= decodeAhead || drained_)
                          : target - streamStart_ <= decodeAhead;
  bool fromStart = !started && decodeOn;
  // A seek should land on a key frame at or before the target, but containers without an index land
  // on packets whose key frame comes later: then seek again further back, and at last from the start.
  for (int attempt = 0;; ++attempt) {
    if (!decodeOn) {
      const std::int64_t back = attempt == 0 ? 0 : decodeAhead << (2 * (attempt - 1));
      fromStart = attempt > 4 || target - back <= streamStart_;
      if (fromStart) {
        rewind();
      } else {
        seekBefore(target - back);
      }
    }
    decodeThrough(target);
    if (haveCurrent_) {
      break;
    }
    if (fromStart) {
      // Before the first frame the first frame shows (if any frame decodes at all).
      if (haveFollowing_) {
        takeFollowing();
      }
      break;
    }
    // Nothing decoded at or before the target: the seek landed after its key frame.
    decodeOn = false;
  }
  if (!haveCurrent_ || !convert(current_)) {
    return nullptr;
  }
  return &frame_;
}

bool MovieFile::convert(const AVFrame* frame) {
  const std::int64_t time = toMovieTime(presentationTime(frame));
  if (time == convertedTime_ && frame_.bytes != nullptr) {
    return true;
  }
  const auto format = static_cast<AVPixelFormat>(frame->format);
  scaler_ = sws_getCachedContext(scaler_, frame->width, frame->height, format, frame->width, frame->height,
                                 AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr);
  if (scaler_ == nullptr) {
    return false;
  }
  const int colorSpace = frame->colorspace == AVCOL_SPC_BT709 ? SWS_CS_ITU709 : SWS_CS_DEFAULT;
  const bool fullRange = frame->color_range == AVCOL_RANGE_JPEG;
  sws_setColorspaceDetails(scaler_, sws_getCoefficients(colorSpace), fullRange ? 1 : 0,
                           sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
  const std::size_t rowBytes = static_cast<std::size_t>(FFALIGN(frame->width * 4, 64));
  const std::size_t bytes = rowBytes * static_cast<std::size_t>(frame->height);
  if (bytes != pixelBytes_) {
    av_freep(&pixels_);
    pixels_ = static_cast<std::uint8_t*>(av_malloc(bytes));
    pixelBytes_ = pixels_ ? bytes : 0;
    if (pixels_ == nullptr) {
      return false;
    }
  }
  std::uint8_t* planes[4] = {pixels_, nullptr, nullptr, nullptr};
  const int strides[4] = {static_cast<int>(rowBytes), 0, 0, 0};
  if (sws_scale(scaler_, frame->data, frame->linesize, 0, frame->height, planes, strides) != frame->height) {
    return false;
  }
  const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
  if (descriptor != nullptr && (descriptor->flags & AV_PIX_FMT_FLAG_ALPHA)) {
    premultiply(pixels_, frame->width, frame->height, rowBytes);
  }
  frame_ = {frame->width, frame->height, rowBytes, pixels_, time};
  convertedTime_ = time;
  return true;
}

}  // namespace qva
