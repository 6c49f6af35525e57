#include "foundation/video/VideoWriter.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <thread>

#include "foundation/video/FFmpegErrorText.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

namespace qva {

namespace {

struct CodecChoice {
  const char* encoder;
  AVPixelFormat pixelFormat;
  // Whether the encoder takes straight alpha; otherwise the picture is composited over black.
  bool straightAlpha;
};

std::optional<CodecChoice> codecNamed(const std::string& name) {
  if (name == "qtrle") {
    return CodecChoice{"qtrle", AV_PIX_FMT_ARGB, true};
  }
  if (name == "prores4444") {
    // Of FFmpeg's two ProRes encoders, this one is about four times as fast as the other, with lossless
    // alpha and colour within 8-bit rounding of it.
    return CodecChoice{"prores", AV_PIX_FMT_YUVA444P10LE, true};
  }
  if (name == "h264") {
    return CodecChoice{"libx264", AV_PIX_FMT_YUV420P, false};
  }
  if (name == "ffv1") {
    return CodecChoice{"ffv1", AV_PIX_FMT_BGRA, true};
  }
  return std::nullopt;
}

// How an encoder of the stream is set up: the stream's own, and each chunk's.
struct EncoderSettings {
  const AVCodec* codec = nullptr;
  std::string name;
  AVPixelFormat pixelFormat = AV_PIX_FMT_NONE;
  int width = 0;
  int height = 0;
  AVRational timeBase{};
  FieldOrder fieldOrder = FieldOrder::Progressive;
  bool globalHeader = false;
  int gopSize = 25;
  // 0 lets FFmpeg choose.
  int threads = 0;
};

AVCodecContext* openEncoder(const EncoderSettings& settings, std::string& error) {
  AVCodecContext* encoder = avcodec_alloc_context3(settings.codec);
  if (encoder == nullptr) {
    error = "out of memory";
    return nullptr;
  }
  encoder->width = settings.width;
  encoder->height = settings.height;
  encoder->time_base = settings.timeBase;
  encoder->framerate = av_inv_q(settings.timeBase);
  encoder->pix_fmt = settings.pixelFormat;
  encoder->gop_size = settings.gopSize;
  if (settings.name == "prores4444") {
    encoder->profile = FF_PROFILE_PRORES_4444;
    av_opt_set(encoder->priv_data, "vendor", "apl0", 0);
  } else if (settings.name == "h264") {
    av_opt_set(encoder->priv_data, "preset", "veryfast", 0);
    av_opt_set(encoder->priv_data, "crf", "18", 0);
  } else if (settings.name == "ffv1") {
    encoder->level = 3;
  }
  encoder->field_order = settings.fieldOrder == FieldOrder::UpperFirst   ? AV_FIELD_TT
                         : settings.fieldOrder == FieldOrder::LowerFirst ? AV_FIELD_BB
                                                                         : AV_FIELD_PROGRESSIVE;
  if (settings.fieldOrder != FieldOrder::Progressive) {
    encoder->flags |= AV_CODEC_FLAG_INTERLACED_DCT | AV_CODEC_FLAG_INTERLACED_ME;
  }
  if (settings.globalHeader) {
    encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  }
  encoder->thread_count = settings.threads;
  if (const int code = avcodec_open2(encoder, settings.codec, nullptr); code < 0) {
    error = "cannot open the " + settings.name + " encoder: " + ffmpegErrorText(code);
    avcodec_free_context(&encoder);
    return nullptr;
  }
  return encoder;
}

// Frames a chunk of QuickTime Animation holds: its first is a key frame, the others code only what
// changed and cost a fraction of it. Longer chunks encode faster and hold more frames in memory while
// every processor has one (twelve 1080p frames are 100 MB).
constexpr int kAnimationChunkFrames = 12;

}  // namespace

VideoWriter::Creation VideoWriter::open(const std::string& path, int width, int height, double frameRate,
                                        const std::string& codec, FieldOrder fieldOrder) {
  av_log_set_level(AV_LOG_ERROR);
  const std::string extension = std::filesystem::path(path).extension().string();
  std::string chosen = codec;
  if (chosen.empty()) {
    chosen = extension == ".mov" ? "qtrle" : extension == ".mp4" ? "h264" : extension == ".mkv" ? "ffv1" : "";
  }
  if (extension != ".mov" && extension != ".mp4" && extension != ".mkv") {
    return {nullptr, "unknown video file extension \"" + extension + "\" (use .mov, .mp4 or .mkv)"};
  }
  const auto choice = codecNamed(chosen);
  if (!choice) {
    return {nullptr, "unknown codec \"" + chosen + "\" (use qtrle, prores4444, h264 or ffv1)"};
  }
  if (width <= 0 || height <= 0 || !(frameRate > 0) || !std::isfinite(frameRate)) {
    return {nullptr, "a video needs a positive size and frame rate"};
  }
  EncoderSettings settings;
  settings.codec = avcodec_find_encoder_by_name(choice->encoder);
  if (settings.codec == nullptr) {
    return {nullptr, std::string("this FFmpeg has no ") + choice->encoder + " encoder"};
  }
  std::unique_ptr<VideoWriter> writer(new VideoWriter());
  writer->path_ = path;
  writer->codec_ = chosen;
  writer->partialPath_ = path + ".partial" + extension;
  if (avformat_alloc_output_context2(&writer->format_, nullptr, nullptr, path.c_str()) < 0 ||
      writer->format_ == nullptr) {
    return {nullptr, "no container format for " + path};
  }
  AVStream* stream = avformat_new_stream(writer->format_, nullptr);
  if (stream == nullptr) {
    return {nullptr, "out of memory"};
  }
  settings.name = chosen;
  settings.pixelFormat = choice->pixelFormat;
  settings.width = width;
  settings.height = height;
  settings.timeBase = av_d2q(1.0 / frameRate, 1000000);
  settings.fieldOrder = fieldOrder;
  settings.globalHeader = (writer->format_->oformat->flags & AVFMT_GLOBALHEADER) != 0;
  std::string error;
  writer->encoder_ = openEncoder(settings, error);
  if (writer->encoder_ == nullptr) {
    return {nullptr, error};
  }
  avcodec_parameters_from_context(stream->codecpar, writer->encoder_);
  stream->time_base = settings.timeBase;
  if (const int code = avio_open(&writer->format_->pb, writer->partialPath_.c_str(), AVIO_FLAG_WRITE);
      code < 0) {
    return {nullptr, "cannot write " + path + ": " + ffmpegErrorText(code)};
  }
  if (const int code = avformat_write_header(writer->format_, nullptr); code < 0) {
    return {nullptr, "cannot write " + path + ": " + ffmpegErrorText(code)};
  }
  writer->packet_ = av_packet_alloc();
  if (writer->packet_ == nullptr) {
    return {nullptr, "out of memory"};
  }
  const auto makeInput = [width, height, choice, fieldOrder] {
    return EncoderInput::create(width, height, choice->pixelFormat, choice->straightAlpha, fieldOrder);
  };
  // One of these encoders keeps one processor busy at most: chunks of frames go to an encoder each.
  if (chosen == "qtrle" || chosen == "prores4444") {
    settings.threads = 1;
    const int chunkFrames = chosen == "qtrle" ? kAnimationChunkFrames : 1;
    settings.gopSize = chunkFrames;
    const int processors = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    writer->chunked_ = std::make_unique<ChunkedEncoder>(
        [settings](std::string& chunkError) { return openEncoder(settings, chunkError); }, makeInput, width,
        height, chunkFrames, processors);
    return {std::move(writer), {}};
  }
  EncoderInput::Creation input = makeInput();
  if (!input.input) {
    return {nullptr, input.error};
  }
  writer->input_ = std::move(input.input);
  return {std::move(writer), {}};
}

VideoWriter::~VideoWriter() {
  // Chunks still being encoded go before the file they were for.
  chunked_.reset();
  if (format_ != nullptr) {
    if (format_->pb != nullptr) {
      avio_closep(&format_->pb);
    }
    avformat_free_context(format_);
  }
  if (!finished_ && !partialPath_.empty()) {
    unlink(partialPath_.c_str());
  }
  avcodec_free_context(&encoder_);
  av_packet_free(&packet_);
}

std::string VideoWriter::writeFrame(const PixelBufferView& frame) {
  if (frame.width != encoder_->width || frame.height != encoder_->height || frame.bytes == nullptr) {
    return "frame of the wrong size for " + path_;
  }
  const long long time = nextTime_++;
  if (chunked_) {
    const std::string error =
        chunked_->write(frame, time, [this](AVPacket* packet) { return writePacket(packet); });
    return error.empty() ? error : path_ + ": " + error;
  }
  AVFrame* filled = input_->fill(frame);
  if (filled == nullptr) {
    return "out of memory";
  }
  filled->pts = time;
  return encode(filled);
}

std::string VideoWriter::encode(AVFrame* frame) {
  if (const int code = avcodec_send_frame(encoder_, frame); code < 0) {
    return "cannot encode " + path_ + ": " + ffmpegErrorText(code);
  }
  for (;;) {
    const int code = avcodec_receive_packet(encoder_, packet_);
    if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) {
      return {};
    }
    if (code < 0) {
      return "cannot encode " + path_ + ": " + ffmpegErrorText(code);
    }
    if (std::string error = writePacket(packet_); !error.empty()) {
      return error;
    }
  }
}

std::string VideoWriter::writePacket(AVPacket* packet) {
  // Every frame lasts one frame period; without a duration the container may drop the last one.
  if (packet->duration == 0) {
    packet->duration = 1;
  }
  av_packet_rescale_ts(packet, encoder_->time_base, format_->streams[0]->time_base);
  packet->stream_index = 0;
  if (const int written = av_interleaved_write_frame(format_, packet); written < 0) {
    return "cannot write " + path_ + ": " + ffmpegErrorText(written);
  }
  return {};
}

std::string VideoWriter::finish() {
  const std::string error =
      chunked_ ? chunked_->finish([this](AVPacket* packet) { return writePacket(packet); }) : encode(nullptr);
  if (!error.empty()) {
    return chunked_ ? path_ + ": " + error : error;
  }
  if (const int code = av_write_trailer(format_); code < 0) {
    return "cannot write " + path_ + ": " + ffmpegErrorText(code);
  }
  if (const int code = avio_closep(&format_->pb); code < 0) {
    return "cannot write " + path_ + ": " + ffmpegErrorText(code);
  }
  if (std::rename(partialPath_.c_str(), path_.c_str()) != 0) {
    return "cannot write " + path_;
  }
  finished_ = true;
  return {};
}

}  // namespace qva
