#pragma once

#include "host/PlayoutClock.h"
#include "host/PlayoutControl.h"

namespace qva {

// Which frame a playout renders next and how well it keeps time, without waiting itself. Frame n is due
// at start + n / frame rate, computed afresh for every frame so that no error adds up over hours. A frame
// is rendered ahead and shown at its due time; a frame shown more than a quarter of a period after it is
// late. When the playout has fallen behind so far that frames are due before the next could be drawn,
// those frames are dropped (never rendered) and the outputs repeat the last frame in their place, so that
// they keep the clock's rate.
class FramePacer {
 public:
  using Time = PlayoutClock::Time;

  struct Slot {
    long long frame = 0;
    Time due{};
    // Frames dropped before this one, which the outputs get the last frame again for.
    long long skipped = 0;
  };

  // frameRate > 0.
  explicit FramePacer(double frameRate);

  // The clock starts now: frame 0 is due at once.
  void start(Time now);
  // The next frame to render when rendering begins now: the first frame after the last one shown that is
  // not yet due, or that frame itself when none has been shown.
  Slot next(Time now);
  // Notes a frame shown at a time, with what rendering and handing it to the outputs cost.
  void shown(const Slot& slot, Time now, Time renderCost, Time outputCost);

  Time due(long long frame) const;
  double frameRate() const { return frameRate_; }
  const PlayoutPacing& pacing() const { return pacing_; }

 private:
  double frameRate_;
  Time start_{};
  long long lastShown_ = -1;
  PlayoutPacing pacing_;
};

}  // namespace qva
