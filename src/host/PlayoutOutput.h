#pragma once

#include <memory>
#include <string>

#include "foundation/image/Bitmap.h"
#include "framework/Image.h"

namespace qva {

// One of a playout's outputs as the playout and its user see it: fed at the clock's rate without ever
// waiting, counting the frames it wrote and those it had no room for, failing alone and keeping its
// first error. An output takes frames either read back into memory (offer) or as the canvas on the GPU
// (offerCanvas); the playout reads frames back only when an output takes them so.
class PlayoutOutput {
 public:
  virtual ~PlayoutOutput();

  // Lowers the priority of the calling thread, and of the threads it starts from then on, to that of
  // the threads that write outputs: when the processors are busy, the clock's thread goes first.
  static void lowerThreadPriority();

  virtual bool takesPixels() const = 0;
  // A frame read back, premultiplied BGRA, top row first; for outputs that take pixels.
  virtual void offer(std::shared_ptr<const Bitmap> /*frame*/) {}
  // The canvas just drawn (a 2D texture whose first row is the frame's top one), on the host thread with
  // the renderer's context current; for outputs that do not take pixels.
  virtual void offerCanvas(const TextureView& /*canvas*/) {}
  // Writes or shows what waits, then completes the output; an empty string, or the first error.
  virtual std::string finish() = 0;

  virtual long long written() const = 0;
  virtual long long dropped() const = 0;
  // The first error, empty while there is none.
  virtual std::string error() const = 0;
  bool failed() const { return !error().empty(); }
  virtual std::string description() const = 0;
};

}  // namespace qva
