#include <gtest/gtest.h>

#include <cmath>

#include "patches/timing/QVAInterpolation.h"
#include "patches/timing/QVAInterpolationPlugIn.h"
#include "support/DriveScript.h"

namespace qva {
namespace {

// Output values of an Interpolation patch driven through `qva drive` frames at the given times.
std::vector<double> outputsAt(const PropertyList& inputs, const std::vector<double>& times) {
  PropertyList steps = PropertyList::array();
  for (const double time : times) {
    steps.push_back({{"time", time}, {"inputs", steps.empty() ? inputs : PropertyList::object()}});
  }
  std::vector<double> outputs;
  for (const PropertyList& line : drivePatch("QVAInterpolationPlugIn", steps)) {
    outputs.push_back(line["outputs"]["outputValue"].get<double>());
  }
  return outputs;
}

TEST(QVAInterpolation, EasingFunctionsKeepTheirExactFormulas) {
  double result = 0;
  ASSERT_EQ(qvaInterpolate(7, 0, &result), 0);
  EXPECT_DOUBLE_EQ(result, 0.0009764190955193801) << "exponential in is not pinned to 0";
  qvaInterpolate(8, 1, &result);
  EXPECT_DOUBLE_EQ(result, 0.9990235809044806);
  qvaInterpolate(3, 0.5, &result);
  EXPECT_DOUBLE_EQ(result, 0.5) << "x = 0.5 belongs to the first half";
  qvaInterpolate(6, 0.75, &result);
  EXPECT_DOUBLE_EQ(result, 0.9375);
  qvaInterpolate(12, 0.25, &result);
  EXPECT_NEAR(result, 0.14644660940672627, 1e-15);
  for (unsigned index = 0; index <= 12; ++index) {
    if (index == 7 || index == 8 || index == 9) {
      continue;
    }
    qvaInterpolate(index, 0, &result);
    EXPECT_NEAR(result, 0, 1e-15) << index;
    qvaInterpolate(index, 1, &result);
    EXPECT_NEAR(result, 1, 1e-15) << index;
  }
}

TEST(QVAInterpolation, RefusesBadIndicesFractionsAndMissingResults) {
  double result = 42;
  EXPECT_EQ(qvaInterpolate(13, 0.5, &result), -50);
  EXPECT_EQ(qvaInterpolate(0, -0.01, &result), -50);
  EXPECT_EQ(qvaInterpolate(0, 1.01, &result), -50);
  EXPECT_EQ(qvaInterpolate(0, std::nan(""), &result), -50);
  EXPECT_EQ(qvaInterpolate(0, 0.5, nullptr), -50);
  EXPECT_EQ(result, 42) << "nothing is written on refusal";
}

TEST(QVAInterpolationPlugIn, DefaultCycleHoldsRampsAndRestarts) {
  EXPECT_EQ(outputsAt(PropertyList::object(), {0, 5.25, 5.5, 8.75, 9}),
            (std::vector<double>{0, 0.5, 1, 0.5, 0}));
}

TEST(QVAInterpolationPlugIn, DegenerateDurationsAndTimesNeverHang) {
  EXPECT_EQ(outputsAt({{"inputHoldDuration1", 0},
                       {"inputHoldDuration2", 0},
                       {"inputInterpolationDuration1", 0},
                       {"inputInterpolationDuration2", 0},
                       {"inputValue1", 3}},
                      {0, 7, 1e9}),
            (std::vector<double>{3, 3, 3}));
  EXPECT_EQ(outputsAt({{"inputValue1", 2}}, {-4}), (std::vector<double>{2})) << "negative time holds value 1";
  EXPECT_EQ(outputsAt({{"inputHoldDuration1", -5},
                       {"inputHoldDuration2", -1},
                       {"inputInterpolationDuration1", 0},
                       {"inputInterpolationDuration2", 0}},
                      {3}),
            (std::vector<double>{0}));
  EXPECT_EQ(outputsAt({{"inputHoldDuration1", -1}, {"inputHoldDuration2", 0}}, {0.25}),
            (std::vector<double>{0.5}))
      << "a negative hold counts as none";
  const auto huge = outputsAt({{"inputHoldDuration1", 1e-6}}, {1e300, INFINITY});
  EXPECT_TRUE(std::isfinite(huge[0]));
}

TEST(QVAInterpolationPlugIn, HoldsWithoutPauseAndHoldsTheStartOnABadIndex) {
  EXPECT_EQ(outputsAt({{"inputHoldDuration1", 0},
                       {"inputHoldDuration2", 0},
                       {"inputInterpolationDuration1", 1},
                       {"inputInterpolationDuration2", 1}},
                      {0.5, 1, 1.5, 2}),
            (std::vector<double>{0.5, 1, 0.5, 0}));
  EXPECT_EQ(outputsAt({{"inputInterpolation1", 13}, {"inputValue2", 4}}, {5.25, 5.49}),
            (std::vector<double>{0, 0}));
  const auto expIn = outputsAt({{"inputInterpolation1", 7}, {"inputValue2", 1000}}, {5.0});
  EXPECT_NEAR(expIn[0], 0.9764190955193801, 1e-12) << "the first frame of an exponential phase already moves";
}

TEST(QVAInterpolationPlugIn, ThePhaseWalkSubtractsPhaseByPhase) {
  QVAInterpolationPlugIn patch;
  const double durations[4] = {0.1, 0.2, 0.3, 0.4};
  const double time = 10000 * 1.0 + 0.15;
  // The reference walk: subtract each phase's duration in turn.
  double remaining = time;
  int phase = 0;
  while (durations[phase] <= remaining) {
    remaining -= durations[phase];
    phase = (phase + 1) % 4;
  }
  const char* keys[4] = {"inputHoldDuration1", "inputInterpolationDuration1", "inputHoldDuration2",
                         "inputInterpolationDuration2"};
  for (int i = 0; i < 4; ++i) {
    patch.setInputValue(keys[i], Value(durations[i]));
  }
  patch.updateInputChangeFlags();
  patch.pollInputPorts();
  const double fraction = patch.normalizedTimeForTime(time);
  EXPECT_EQ(patch.phase(), phase);
  if (phase == 1) {
    EXPECT_EQ(fraction, remaining / durations[1]);
  }
}

}  // namespace
}  // namespace qva
