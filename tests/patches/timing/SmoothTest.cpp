#include <gtest/gtest.h>

#include <limits>

#include "patches/timing/QVAInterpolation.h"
#include "patches/timing/QVASmoothPlugIn.h"
#include "support/PatchDriver.h"

namespace qva {
namespace {

constexpr double kOnInputChangeOnly = std::numeric_limits<float>::max();

// Output 0 settled from t = 0, then the input becomes 10 at t = 1 with a 2 s linear rise.
void startRising(PatchDriver& smooth) {
  smooth.set("inputIncreasingDuration", 2.0);
  smooth.start();
  smooth.frame(0);
  smooth.set("inputValue", 10.0);
}

TEST(QVASmoothPlugIn, EasesLinearlyAndSettlesOnTheTarget) {
  PatchDriver smooth = driverFor<QVASmoothPlugIn>();
  startRising(smooth);
  EXPECT_DOUBLE_EQ(smooth.afterFrame(1).number("outputSmoothedValue"), 0);
  EXPECT_DOUBLE_EQ(smooth.afterFrame(2).number("outputSmoothedValue"), 5);
  EXPECT_DOUBLE_EQ(smooth.afterFrame(3).number("outputSmoothedValue"), 10);
  EXPECT_DOUBLE_EQ(smooth.afterFrame(3.4).lastExecutionTime(), 3.4);  // still settling
  EXPECT_DOUBLE_EQ(smooth.afterFrame(7).number("outputSmoothedValue"), 10);
  EXPECT_EQ(smooth.lastExecutionTime(), kOnInputChangeOnly);
  smooth.set("inputDecreasingInterpolation", std::uint32_t{3});
  EXPECT_DOUBLE_EQ(smooth.afterFrame(8).lastExecutionTime(), 8);  // an input changed
}

TEST(QVASmoothPlugIn, SnapsAtTimeZeroAndAfterEveryEnable) {
  PatchDriver smooth = driverFor<QVASmoothPlugIn>();
  startRising(smooth);
  smooth.frame(1);
  smooth.frame(2);
  EXPECT_DOUBLE_EQ(smooth.afterFrame(0).number("outputSmoothedValue"), 10);

  smooth.set("inputValue", 0.0);
  smooth.frame(1);
  EXPECT_GT(smooth.afterFrame(1.5).number("outputSmoothedValue"), 0);
  smooth.patch().enableExecution(smooth.context());
  EXPECT_DOUBLE_EQ(smooth.afterFrame(1.6).number("outputSmoothedValue"), 0);
}

TEST(QVASmoothPlugIn, NewTransitionsStartFromTheCurrentOutput) {
  PatchDriver smooth = driverFor<QVASmoothPlugIn>();
  startRising(smooth);
  smooth.frame(1);
  smooth.frame(2);
  smooth.set("inputValue", 0.0);
  smooth.set("inputDecreasingDuration", 1.0);
  smooth.frame(2);
  EXPECT_DOUBLE_EQ(smooth.afterFrame(2.5).number("outputSmoothedValue"), 2.5);

  // A new duration restarts the remaining way over the full duration, from the transition's start value.
  smooth.set("inputDecreasingDuration", 2.0);
  EXPECT_DOUBLE_EQ(smooth.afterFrame(2.5).number("outputSmoothedValue"), 5);
  EXPECT_DOUBLE_EQ(smooth.afterFrame(3.5).number("outputSmoothedValue"), 2.5);
}

double smoothedAt(std::uint32_t easing, double time) {
  PatchDriver smooth = driverFor<QVASmoothPlugIn>();
  startRising(smooth);
  smooth.set("inputIncreasingInterpolation", easing);
  smooth.frame(1);
  return smooth.afterFrame(time).number("outputSmoothedValue");
}

TEST(QVASmoothPlugIn, SinusoidalOutSelectsTheInOutCurve) {
  for (const double time : {1.3, 1.8, 2.6}) {
    double inOut = 0;
    ASSERT_EQ(qvaInterpolate(12, (time - 1) / 2, &inOut), 0);
    EXPECT_DOUBLE_EQ(smoothedAt(11, time), smoothedAt(12, time));
    EXPECT_DOUBLE_EQ(smoothedAt(11, time), 10 * inOut);
    EXPECT_DOUBLE_EQ(smoothedAt(10, time), 10 * qvaInterpolationCallbackSinIn((time - 1) / 2));
  }
}

TEST(QVASmoothPlugIn, InvalidEasingIndexIsLoggedAndEasesLinearly) {
  PatchDriver smooth = driverFor<QVASmoothPlugIn>();
  startRising(smooth);
  smooth.set("inputIncreasingInterpolation", std::uint32_t{20});
  smooth.frame(1);
  EXPECT_DOUBLE_EQ(smooth.afterFrame(2.5).number("outputSmoothedValue"), 7.5);
  ASSERT_FALSE(smooth.processLog().empty());
  EXPECT_EQ(smooth.processLog().back(),
            "-[QVASmoothPlugIn currentInterpolationFunction] Invalid interpolation function index: 20");
}

TEST(QVASmoothPlugIn, OddNumbersNeverHangOrThrow) {
  PatchDriver smooth = driverFor<QVASmoothPlugIn>();
  startRising(smooth);
  smooth.set("inputIncreasingDuration", std::numeric_limits<double>::quiet_NaN());
  EXPECT_DOUBLE_EQ(smooth.afterFrame(1).number("outputSmoothedValue"),
                   10);  // no usable duration: at the target
  // Durations of 0 or less jump at once.
  smooth.set("inputIncreasingDuration", -3.0);
  smooth.set("inputValue", 20.0);
  EXPECT_DOUBLE_EQ(smooth.afterFrame(1e300).number("outputSmoothedValue"), 20);
}

}  // namespace
}  // namespace qva
