#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "foundation/image/Bitmap.h"

namespace qva {

// Frames of one size, tight rows, handed out to be drawn into and shared by the outputs; a frame whose
// last holder lets go returns to the pool instead of being freed, so that playout does not allocate and
// fault in a frame's memory every frame.
class FramePool {
 public:
  FramePool(int width, int height);

  // A frame to fill, or nothing when memory cannot be had.
  std::shared_ptr<Bitmap> take();

 private:
  struct Shelf {
    std::mutex mutex;
    std::vector<Bitmap> spare;
  };

  int width_;
  int height_;
  // Frames outlive the pool when an output still holds one: they find their shelf through this.
  std::shared_ptr<Shelf> shelf_;
};

}  // namespace qva
