#include "cli/FrameCount.h"

#include <cmath>

#include "cli/CommandError.h"
#include "framework/StringFormat.h"
#include "host/Composition.h"

namespace qva {

FrameCount FrameCount::resolve(const Composition& composition, std::optional<long long> frames,
                               std::optional<double> duration, std::optional<double> frameRate) {
  FrameCount count;
  count.frameRate = frameRate.value_or(composition.frameRate());
  // Video files count time in millionths of a second at the finest.
  if (!(count.frameRate > 0) || !(count.frameRate <= 1e6)) {
    throw CommandError(frameRate ? std::string("--fps must be a positive number up to 1000000")
                                 : formatString("the composition's frame rate of %g is above 1000000; "
                                                "choose one with --fps",
                                                count.frameRate));
  }
  if (duration && (!(*duration >= 0) || !std::isfinite(*duration))) {
    throw CommandError("--duration must be a number of seconds, 0 or more");
  }
  if (!frames) {
    const double seconds = duration.value_or(composition.duration());
    const double wanted = seconds * count.frameRate;
    // Past 2^53 frames a double no longer counts whole frames, and the count soon leaves long long.
    if (!(wanted <= 9007199254740992.0)) {
      throw CommandError(formatString("too many frames: %g s at %g fps; lower --duration or --fps", seconds,
                                      count.frameRate));
    }
    frames = std::llround(wanted);
  }
  count.frames = *frames;
  if (count.frames < 0) {
    throw CommandError("--frames must not be negative");
  }
  return count;
}

}  // namespace qva
