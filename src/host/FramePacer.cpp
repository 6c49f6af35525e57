#include "host/FramePacer.h"

#include <cmath>

namespace qva {

namespace {

double milliseconds(PlayoutClock::Time time) {
  return std::chrono::duration<double, std::milli>(time).count();
}

}  // namespace

FramePacer::FramePacer(double frameRate) : frameRate_(frameRate) {}

void FramePacer::start(Time now) {
  start_ = now;
  lastShown_ = -1;
  pacing_ = {};
}

FramePacer::Time FramePacer::due(long long frame) const {
  return start_ + Time(std::llround(static_cast<double>(frame) * 1e9 / frameRate_));
}

FramePacer::Slot FramePacer::next(Time now) {
  long long frame = lastShown_ + 1;
  // The very first frame is shown however late it comes: there is nothing to repeat before it.
  if (lastShown_ >= 0 && now > due(frame)) {
    // The first frame due at or after now; rounding of the division is settled against due() itself.
    long long current =
        static_cast<long long>(std::ceil(std::chrono::duration<double>(now - start_).count() * frameRate_));
    while (current > frame && due(current - 1) >= now) {
      --current;
    }
    while (due(current) < now) {
      ++current;
    }
    frame = std::max(frame, current);
  }
  return {frame, due(frame), frame - lastShown_ - 1};
}

void FramePacer::shown(const Slot& slot, Time now, Time renderCost, Time outputCost) {
  const Time period(std::llround(1e9 / frameRate_));
  if (now - slot.due > period / 4) {
    ++pacing_.framesLate;
  }
  pacing_.framesDropped += slot.skipped;
  pacing_.framesRepeated += slot.skipped;
  // Running means over the frames shown.
  const auto count = static_cast<double>(++pacing_.framesShown);
  pacing_.renderMilliseconds += (milliseconds(renderCost) - pacing_.renderMilliseconds) / count;
  pacing_.outputMilliseconds += (milliseconds(outputCost) - pacing_.outputMilliseconds) / count;
  lastShown_ = slot.frame;
}

}  // namespace qva
