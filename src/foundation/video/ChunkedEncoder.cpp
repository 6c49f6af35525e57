#include "foundation/video/ChunkedEncoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <algorithm>

#include "foundation/video/FFmpegErrorText.h"

namespace qva {

namespace {

std::string encodingError(int code) {
  return "cannot encode: " + ffmpegErrorText(code);
}

}  // namespace

ChunkedEncoder::ChunkedEncoder(EncoderFactory encoders, InputFactory inputs, int width, int height,
                               int chunkLength, int threads)
    : encoders_(std::move(encoders)),
      inputs_(std::move(inputs)),
      width_(width),
      height_(height),
      chunkLength_(static_cast<std::size_t>(std::max(chunkLength, 1))),
      threadCount_(static_cast<std::size_t>(std::max(threads, 1))) {
  for (std::size_t index = 0; index < threadCount_; ++index) {
    threads_.emplace_back([this] { work(); });
  }
}

ChunkedEncoder::~ChunkedEncoder() {
  {
    std::lock_guard lock(mutex_);
    closing_ = true;
    waiting_.clear();
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) {
    thread.join();
  }
  for (const auto& chunk : chunks_) {
    for (AVPacket*& packet : chunk->packets) {
      av_packet_free(&packet);
    }
  }
}

std::string ChunkedEncoder::write(const PixelBufferView& frame, long long time, const PacketSink& sink) {
  if (!filling_) {
    filling_ = std::make_unique<Chunk>();
  }
  std::optional<Bitmap> copy;
  {
    std::lock_guard lock(mutex_);
    if (!spareFrames_.empty()) {
      copy = std::move(spareFrames_.back());
      spareFrames_.pop_back();
    }
  }
  if (!copy) {
    copy = Bitmap::allocate(width_, height_, static_cast<std::size_t>(width_) * 4);
    if (!copy) {
      return "out of memory for a frame waiting to be encoded";
    }
  }
  const std::size_t rowLength = static_cast<std::size_t>(width_) * 4;
  for (int y = 0; y < height_; ++y) {
    std::copy_n(frame.bytes + static_cast<std::size_t>(y) * frame.rowBytes, rowLength, copy->row(y));
  }
  filling_->frames.push_back(std::move(*copy));
  filling_->times.push_back(time);
  if (filling_->frames.size() < chunkLength_) {
    return writeFinished(sink, false);
  }
  seal();
  bool full = false;
  {
    std::lock_guard lock(mutex_);
    full = chunks_.size() > threadCount_;
  }
  return writeFinished(sink, full);
}

std::string ChunkedEncoder::finish(const PacketSink& sink) {
  if (filling_) {
    seal();
  }
  for (;;) {
    {
      std::lock_guard lock(mutex_);
      if (chunks_.empty()) {
        return {};
      }
    }
    if (std::string error = writeFinished(sink, true); !error.empty()) {
      return error;
    }
  }
}

void ChunkedEncoder::seal() {
  {
    std::lock_guard lock(mutex_);
    waiting_.push_back(filling_.get());
    chunks_.push_back(std::move(filling_));
  }
  changed_.notify_all();
}

std::string ChunkedEncoder::writeFinished(const PacketSink& sink, bool wait) {
  for (;;) {
    std::unique_ptr<Chunk> chunk;
    {
      std::unique_lock lock(mutex_);
      if (wait) {
        changed_.wait(lock, [this] { return chunks_.empty() || chunks_.front()->done; });
        wait = false;
      }
      if (chunks_.empty() || !chunks_.front()->done) {
        return {};
      }
      chunk = std::move(chunks_.front());
      chunks_.pop_front();
    }
    std::string error = chunk->error;
    for (AVPacket*& packet : chunk->packets) {
      if (error.empty()) {
        error = sink(packet);
      }
      av_packet_free(&packet);
    }
    if (!error.empty()) {
      return error;
    }
  }
}

void ChunkedEncoder::work() {
  std::unique_ptr<EncoderInput> input;
  std::string inputError;
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return !waiting_.empty() || closing_; });
    if (closing_) {
      return;
    }
    Chunk* chunk = waiting_.front();
    waiting_.pop_front();
    lock.unlock();
    if (!input && inputError.empty()) {
      EncoderInput::Creation creation = inputs_();
      input = std::move(creation.input);
      inputError = creation.error;
    }
    std::string error = input ? encode(*chunk, *input) : inputError;
    lock.lock();
    chunk->error = std::move(error);
    chunk->done = true;
    for (Bitmap& frame : chunk->frames) {
      spareFrames_.push_back(std::move(frame));
    }
    chunk->frames.clear();
    changed_.notify_all();
  }
}

std::string ChunkedEncoder::encode(Chunk& chunk, EncoderInput& input) {
  std::string error;
  AVCodecContext* encoder = encoders_(error);
  if (encoder == nullptr) {
    return error;
  }
  const auto receive = [&]() -> std::string {
    for (;;) {
      AVPacket* packet = av_packet_alloc();
      if (packet == nullptr) {
        return "out of memory";
      }
      const int code = avcodec_receive_packet(encoder, packet);
      if (code < 0) {
        av_packet_free(&packet);
        return code == AVERROR(EAGAIN) || code == AVERROR_EOF ? std::string() : encodingError(code);
      }
      chunk.packets.push_back(packet);
    }
  };
  for (std::size_t index = 0; index < chunk.frames.size(); ++index) {
    AVFrame* filled = input.fill(chunk.frames[index].view());
    if (filled == nullptr) {
      error = "out of memory";
      break;
    }
    filled->pts = chunk.times[index];
    if (const int code = avcodec_send_frame(encoder, filled); code < 0) {
      error = encodingError(code);
      break;
    }
    if (error = receive(); !error.empty()) {
      break;
    }
  }
  if (error.empty()) {
    avcodec_send_frame(encoder, nullptr);
    error = receive();
  }
  avcodec_free_context(&encoder);
  return error;
}

}  // namespace qva
