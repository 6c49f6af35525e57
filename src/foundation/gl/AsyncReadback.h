#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace qva {

// Reads frames back from the bound framebuffer through pixel buffer objects, so that the transfer of
// one frame overlaps the drawing of the next instead of stalling it: a read begun after drawing a frame
// is collected once the next frame or two have been drawn. Premultiplied BGRA, first row of the
// framebuffer first. Needs the context current that made it, in every call and at destruction.
class AsyncReadback {
 public:
  // depth: reads in flight at most, 2 or more.
  AsyncReadback(int width, int height, std::size_t depth);
  ~AsyncReadback();
  AsyncReadback(const AsyncReadback&) = delete;
  AsyncReadback& operator=(const AsyncReadback&) = delete;

  // Starts reading the bound framebuffer; the caller collects first when full().
  void begin();
  bool full() const { return inFlight_.size() >= buffers_.size(); }
  bool empty() const { return inFlight_.empty(); }
  // Copies the oldest read into rows of rowBytes; false when the driver could not map it.
  bool collect(std::uint8_t* bytes, std::size_t rowBytes);
  // Lets the oldest read go uncollected.
  void discard();

 private:
  int width_;
  int height_;
  std::vector<unsigned> buffers_;
  std::size_t next_ = 0;
  // Buffers holding reads not yet collected, oldest first.
  std::deque<unsigned> inFlight_;
};

}  // namespace qva
