#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

struct AVIOContext;

namespace qva {

// A movie file's bytes in memory, handed to the demuxer through an I/O context of its own. The bytes
// are loaded from the start of the file on: all at once, or step by step from another thread while the
// demuxer reads. Reads beyond what is loaded so far go to the file, so the reader never waits.
class MemoryMovieSource {
 public:
  // Files above this size are not taken into memory.
  static constexpr std::size_t kMaximumBytes = std::size_t{1} << 30;

  struct Opening {
    std::unique_ptr<MemoryMovieSource> source;
    // Why there is none: the file cannot be read, or is too large (tooLarge).
    std::string error;
    bool tooLarge = false;
  };

  static Opening open(const std::string& path);
  ~MemoryMovieSource();
  MemoryMovieSource(const MemoryMovieSource&) = delete;
  MemoryMovieSource& operator=(const MemoryMovieSource&) = delete;

  std::size_t size() const { return size_; }
  // How many bytes from the start are in memory.
  std::size_t loadedBytes() const { return loaded_.load(std::memory_order_acquire); }
  // Reads the file into memory up to the byte offset (at most its size); false when reading fails.
  // One thread at a time may load.
  bool loadThrough(std::size_t end);
  // The demuxer's I/O over the bytes; owned by the source.
  AVIOContext* ioContext() const { return io_; }

 private:
  MemoryMovieSource(int descriptor, std::size_t size, std::unique_ptr<std::uint8_t[]> bytes);
  static int read(void* opaque, std::uint8_t* buffer, int size);
  static std::int64_t seek(void* opaque, std::int64_t offset, int whence);

  int descriptor_;
  std::size_t size_;
  std::unique_ptr<std::uint8_t[]> bytes_;
  std::atomic<std::size_t> loaded_{0};
  // The demuxer's read position.
  std::size_t position_ = 0;
  AVIOContext* io_ = nullptr;
};

}  // namespace qva
