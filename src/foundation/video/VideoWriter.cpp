#include "foundation/video/VideoWriter.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include "foundation/image/PngWriter.h"

namespace qva {

namespace {

std::string errorText(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

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
  const AVCodec* encoder = avcodec_find_encoder_by_name(choice->encoder);
  if (encoder == nullptr) {
    return {nullptr, std::string("this FFmpeg has no ") + choice->encoder + " encoder"};
  }
  std::unique_ptr<VideoWriter> writer(new VideoWriter());
  writer->path_ = path;
  writer->codec_ = chosen;
  writer->straightAlpha_ = choice->straightAlpha;
  writer->partialPath_ = path + ".partial" + extension;
  if (avformat_alloc_output_context2(&writer->format_, nullptr, nullptr, path.c_str()) < 0 ||
      writer->format_ == nullptr) {
    return {nullptr, "no container format for " + path};
  }
  AVStream* stream = avformat_new_stream(writer->format_, nullptr);
  writer->encoder_ = avcodec_alloc_context3(encoder);
  if (stream == nullptr || writer->encoder_ == nullptr) {
    return {nullptr, "out of memory"};
  }
  const AVRational timeBase = av_d2q(1.0 / frameRate, 1000000);
  writer->encoder_->width = width;
  writer->encoder_->height = height;
  writer->encoder_->time_base = timeBase;
  writer->encoder_->framerate = av_inv_q(timeBase);
  writer->encoder_->pix_fmt = choice->pixelFormat;
  writer->encoder_->gop_size = 25;
  if (chosen == "prores4444") {
    writer->encoder_->profile = FF_PROFILE_PRORES_4444;
    av_opt_set(writer->encoder_->priv_data, "vendor", "apl0", 0);
  } else if (chosen == "h264") {
    av_opt_set(writer->encoder_->priv_data, "preset", "veryfast", 0);
    av_opt_set(writer->encoder_->priv_data, "crf", "18", 0);
  } else if (chosen == "ffv1") {
    writer->encoder_->level = 3;
  }
  writer->encoder_->field_order = fieldOrder == FieldOrder::UpperFirst   ? AV_FIELD_TT
                                  : fieldOrder == FieldOrder::LowerFirst ? AV_FIELD_BB
                                                                         : AV_FIELD_PROGRESSIVE;
  if (fieldOrder != FieldOrder::Progressive) {
    writer->encoder_->flags |= AV_CODEC_FLAG_INTERLACED_DCT | AV_CODEC_FLAG_INTERLACED_ME;
  }
  if (writer->format_->oformat->flags & AVFMT_GLOBALHEADER) {
    writer->encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  }
  writer->encoder_->thread_count = 0;
  if (const int code = avcodec_open2(writer->encoder_, encoder, nullptr); code < 0) {
    return {nullptr, "cannot open the " + chosen + " encoder: " + errorText(code)};
  }
  avcodec_parameters_from_context(stream->codecpar, writer->encoder_);
  stream->time_base = timeBase;
  if (const int code = avio_open(&writer->format_->pb, writer->partialPath_.c_str(), AVIO_FLAG_WRITE);
      code < 0) {
    return {nullptr, "cannot write " + path + ": " + errorText(code)};
  }
  if (const int code = avformat_write_header(writer->format_, nullptr); code < 0) {
    return {nullptr, "cannot write " + path + ": " + errorText(code)};
  }
  // Straight-alpha formats of 8-bit BGRA or ARGB are filled in place; the others are converted from a
  // BGRA staging frame.
  if (choice->straightAlpha && choice->pixelFormat == AV_PIX_FMT_ARGB) {
    writer->directOrder_ = PngWriter::ChannelOrder::ARGB;
  } else if (choice->straightAlpha && choice->pixelFormat == AV_PIX_FMT_BGRA) {
    writer->directOrder_ = PngWriter::ChannelOrder::BGRA;
  }
  writer->packet_ = av_packet_alloc();
  if (writer->packet_ == nullptr) {
    return {nullptr, "out of memory"};
  }
  const std::string outOfMemory =
      "out of memory for a " + std::to_string(width) + "x" + std::to_string(height) + " frame";
  for (AVFrame*& frame : writer->frames_) {
    frame = av_frame_alloc();
    if (frame == nullptr) {
      return {nullptr, outOfMemory};
    }
    frame->interlaced_frame = fieldOrder != FieldOrder::Progressive;
    frame->top_field_first = fieldOrder == FieldOrder::UpperFirst;
    frame->format = choice->pixelFormat;
    frame->width = width;
    frame->height = height;
    if (av_frame_get_buffer(frame, 0) < 0) {
      return {nullptr, outOfMemory};
    }
  }
  if (writer->directOrder_) {
    return {std::move(writer), {}};
  }
  writer->staging_ = av_frame_alloc();
  if (writer->staging_ == nullptr) {
    return {nullptr, outOfMemory};
  }
  writer->staging_->format = AV_PIX_FMT_BGRA;
  writer->staging_->width = width;
  writer->staging_->height = height;
  if (av_frame_get_buffer(writer->staging_, 0) < 0) {
    return {nullptr, outOfMemory};
  }
  writer->converter_ = sws_getContext(width, height, AV_PIX_FMT_BGRA, width, height, choice->pixelFormat,
                                      SWS_POINT, nullptr, nullptr, nullptr);
  if (writer->converter_ == nullptr) {
    return {nullptr, "no pixel conversion to the " + chosen + " format"};
  }
  return {std::move(writer), {}};
}

VideoWriter::~VideoWriter() {
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
  av_frame_free(&staging_);
  for (AVFrame*& frame : frames_) {
    av_frame_free(&frame);
  }
  av_packet_free(&packet_);
  sws_freeContext(converter_);
}

std::string VideoWriter::writeFrame(const PixelBufferView& frame) {
  if (frame.width != encoder_->width || frame.height != encoder_->height || frame.bytes == nullptr) {
    return "frame of the wrong size for " + path_;
  }
  // The frame the encoder let go of; should it hold both, one is copied to be written.
  AVFrame* const next = av_frame_is_writable(frames_[0]) != 0 ? frames_[0] : frames_[1];
  if (av_frame_make_writable(next) < 0 || (staging_ != nullptr && av_frame_make_writable(staging_) < 0)) {
    return "out of memory";
  }
  AVFrame* rows = directOrder_ ? next : staging_;
  for (int y = 0; y < frame.height; ++y) {
    const std::uint8_t* source = frame.bytes + static_cast<std::size_t>(y) * frame.rowBytes;
    std::uint8_t* target = rows->data[0] + static_cast<std::ptrdiff_t>(y) * rows->linesize[0];
    if (straightAlpha_) {
      PngWriter::unpremultiplyRow(source, target, frame.width,
                                  directOrder_.value_or(PngWriter::ChannelOrder::BGRA));
    } else {
      std::copy_n(source, static_cast<std::size_t>(frame.width) * 4, target);
    }
  }
  if (!directOrder_) {
    sws_scale(converter_, staging_->data, staging_->linesize, 0, frame.height, next->data, next->linesize);
  }
  next->pts = frameIndex_++;
  return encode(next);
}

std::string VideoWriter::encode(AVFrame* frame) {
  if (const int code = avcodec_send_frame(encoder_, frame); code < 0) {
    return "cannot encode " + path_ + ": " + errorText(code);
  }
  for (;;) {
    const int code = avcodec_receive_packet(encoder_, packet_);
    if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) {
      return {};
    }
    if (code < 0) {
      return "cannot encode " + path_ + ": " + errorText(code);
    }
    // Every frame lasts one frame period; without a duration the container may drop the last one.
    if (packet_->duration == 0) {
      packet_->duration = 1;
    }
    av_packet_rescale_ts(packet_, encoder_->time_base, format_->streams[0]->time_base);
    packet_->stream_index = 0;
    if (const int written = av_interleaved_write_frame(format_, packet_); written < 0) {
      return "cannot write " + path_ + ": " + errorText(written);
    }
  }
}

std::string VideoWriter::finish() {
  if (std::string error = encode(nullptr); !error.empty()) {
    return error;
  }
  if (const int code = av_write_trailer(format_); code < 0) {
    return "cannot write " + path_ + ": " + errorText(code);
  }
  if (const int code = avio_closep(&format_->pb); code < 0) {
    return "cannot write " + path_ + ": " + errorText(code);
  }
  if (std::rename(partialPath_.c_str(), path_.c_str()) != 0) {
    return "cannot write " + path_;
  }
  finished_ = true;
  return {};
}

}  // namespace qva
