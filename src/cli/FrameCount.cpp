#include "cli/FrameCount.h"

#include <cmath>

#include "cli/CommandError.h"
#include "host/Composition.h"

namespace qva {

FrameCount FrameCount::resolve(const Composition& composition, std::optional<long long> frames,
                               std::optional<double> duration, std::optional<double> frameRate) {
  FrameCount count;
  count.frameRate = frameRate.value_or(composition.frameRate());
  if (!(count.frameRate > 0) || !std::isfinite(count.frameRate)) {
    throw CommandError("--fps must be a positive number");
  }
  if (duration && (!(*duration >= 0) || !std::isfinite(*duration))) {
    throw CommandError("--duration must be a number of seconds, 0 or more");
  }
  count.frames = frames.value_or(std::llround(duration.value_or(composition.duration()) * count.frameRate));
  if (count.frames < 0) {
    throw CommandError("--frames must not be negative");
  }
  return count;
}

}  // namespace qva
