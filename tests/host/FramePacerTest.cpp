#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "host/FramePacer.h"

namespace qva {
namespace {

using namespace std::chrono_literals;
using Time = FramePacer::Time;

// Plays frames on simulated time: rendering frame n costs renderCost(n), a frame is shown at its due time
// or as soon as it is ready after that, and showing costs nothing.
PlayoutPacing simulate(FramePacer& pacer, long long untilFrame,
                       const std::function<Time(long long)>& renderCost,
                       std::vector<long long>* framesRendered = nullptr) {
  Time now = 1000s;
  pacer.start(now);
  for (;;) {
    const FramePacer::Slot slot = pacer.next(now);
    if (slot.frame >= untilFrame) {
      break;
    }
    if (framesRendered != nullptr) {
      framesRendered->push_back(slot.frame);
    }
    const Time cost = renderCost(slot.frame);
    now = std::max(now + cost, slot.due);
    pacer.shown(slot, now, cost, 0ns);
  }
  return pacer.pacing();
}

TEST(FramePacerTest, FramesThatRenderInTimeAreShownEachAtItsDueTime) {
  FramePacer pacer(50);
  std::vector<long long> rendered;
  const PlayoutPacing pacing = simulate(
      pacer, 3000, [](long long) { return 5ms; }, &rendered);
  EXPECT_EQ(pacing.framesShown, 3000);
  EXPECT_EQ(pacing.framesLate, 0);
  EXPECT_EQ(pacing.framesDropped, 0);
  EXPECT_EQ(pacing.framesRepeated, 0);
  EXPECT_DOUBLE_EQ(pacing.renderMilliseconds, 5.0);
  ASSERT_EQ(rendered.size(), 3000u);
  EXPECT_EQ(rendered.back(), 2999);
  EXPECT_EQ(pacer.due(2999) - pacer.due(0), 2999 * 20ms);
}

TEST(FramePacerTest, DueTimesDoNotDriftOverHours) {
  // 30000/1001 frames a second, whose period is no whole number of nanoseconds.
  FramePacer pacer(30000.0 / 1001.0);
  pacer.start(0ns);
  const long long hour = 107892;  // frames in an hour at that rate, rounded down
  const Time exact(hour * 1001LL * 1000000000LL / 30000LL);
  EXPECT_LE(std::chrono::abs(pacer.due(hour) - exact), 1ns);
  // Ten hours on, adding up periods would be off by far more than a nanosecond a frame.
  const Time tenHours(10 * hour * 1001LL * 1000000000LL / 30000LL);
  EXPECT_LE(std::chrono::abs(pacer.due(10 * hour) - tenHours), 1ns);
}

TEST(FramePacerTest, SlowFrameIsLateAndTheFrameItsSlotPassedIsDroppedAndRepeated) {
  FramePacer pacer(50);
  std::vector<long long> rendered;
  // Every tenth frame takes two and a half periods.
  const PlayoutPacing pacing = simulate(
      pacer, 200, [](long long frame) { return frame % 10 == 3 ? 50ms : 5ms; }, &rendered);
  EXPECT_EQ(pacing.framesLate, 20);
  EXPECT_EQ(pacing.framesDropped, 20);
  EXPECT_EQ(pacing.framesRepeated, 20);
  EXPECT_EQ(pacing.framesShown, 180);
  // The frame after each slow one is the one skipped; the clock goes on with the next.
  EXPECT_EQ(std::count(rendered.begin(), rendered.end(), 4), 0);
  EXPECT_EQ(std::count(rendered.begin(), rendered.end(), 5), 1);
  EXPECT_NEAR(pacing.renderMilliseconds, (20 * 50 + 160 * 5) / 180.0, 1e-9);
}

TEST(FramePacerTest, SlowFirstFrameIsShownAndTheClockCatchesUp) {
  FramePacer pacer(25);
  std::vector<long long> rendered;
  simulate(
      pacer, 20, [](long long frame) { return frame == 0 ? 130ms : 1ms; }, &rendered);
  ASSERT_GE(rendered.size(), 2u);
  EXPECT_EQ(rendered[0], 0);
  // 130 ms in, frames 1 to 3 (due at 40, 80 and 120 ms) have passed.
  EXPECT_EQ(rendered[1], 4);
  EXPECT_EQ(pacer.pacing().framesDropped, 3);
  EXPECT_EQ(pacer.pacing().framesLate, 1);
}

TEST(FramePacerTest, LatenessWithinAQuarterPeriodIsNotLate) {
  FramePacer pacer(50);
  // Ready 4 ms after its due time, then 6 ms after it.
  pacer.start(0ns);
  FramePacer::Slot slot = pacer.next(0ns);
  pacer.shown(slot, slot.due + 4ms, 4ms, 0ns);
  EXPECT_EQ(pacer.pacing().framesLate, 0);
  slot = pacer.next(slot.due + 4ms);
  EXPECT_EQ(slot.frame, 1);
  pacer.shown(slot, slot.due + 6ms, 26ms, 0ns);
  EXPECT_EQ(pacer.pacing().framesLate, 1);
  EXPECT_EQ(pacer.pacing().framesDropped, 0);
}

}  // namespace
}  // namespace qva
