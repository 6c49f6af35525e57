#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "foundation/image/Bitmap.h"
#include "foundation/video/EncoderInput.h"

struct AVCodecContext;
struct AVPacket;

namespace qva {

// Encodes a stream on several threads at once with an encoder instance per chunk of consecutive frames:
// each chunk starts with a key frame and needs nothing of the others, and the packets come out in frame
// order, as one encoder would give them. For codecs whose one encoder uses a single processor
// (QuickTime Animation) or too few (ProRes).
class ChunkedEncoder {
 public:
  // An encoder opened for a new chunk, or null with the reason in error; freed by the chunk's thread.
  using EncoderFactory = std::function<AVCodecContext*(std::string& error)>;
  using InputFactory = std::function<EncoderInput::Creation()>;
  // Takes a packet to write; an empty string, or why it could not.
  using PacketSink = std::function<std::string(AVPacket*)>;

  ChunkedEncoder(EncoderFactory encoders, InputFactory inputs, int width, int height, int chunkLength,
                 int threads);
  // Stops the threads; chunks not yet written are lost.
  ~ChunkedEncoder();
  ChunkedEncoder(const ChunkedEncoder&) = delete;
  ChunkedEncoder& operator=(const ChunkedEncoder&) = delete;

  // Copies the frame, shown at time (in frame periods, later than the last frame's), into the chunk being
  // filled, and hands the packets of the chunks finished so far to sink, in order, on the calling thread.
  // Waits while every thread has a chunk and another is full, so that memory stays bounded.
  std::string write(const PixelBufferView& frame, long long time, const PacketSink& sink);
  // Encodes what is left and hands all remaining packets to sink.
  std::string finish(const PacketSink& sink);

 private:
  struct Chunk {
    std::vector<Bitmap> frames;
    // Each frame's time, in frame periods.
    std::vector<long long> times;
    std::vector<AVPacket*> packets;
    bool done = false;
    std::string error;
  };

  void work();
  std::string encode(Chunk& chunk, EncoderInput& input);
  void seal();
  // Writes the finished chunks at the front; with wait, waits for the front one first.
  std::string writeFinished(const PacketSink& sink, bool wait);

  EncoderFactory encoders_;
  InputFactory inputs_;
  int width_;
  int height_;
  std::size_t chunkLength_;
  std::size_t threadCount_;
  std::unique_ptr<Chunk> filling_;

  std::mutex mutex_;
  std::condition_variable changed_;
  // Sealed chunks in frame order, until written.
  std::deque<std::unique_ptr<Chunk>> chunks_;
  // Sealed chunks no thread has taken yet.
  std::deque<Chunk*> waiting_;
  std::vector<Bitmap> spareFrames_;
  bool closing_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace qva
