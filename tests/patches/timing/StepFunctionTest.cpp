#include <gtest/gtest.h>

#include "patches/timing/QVAStepFunctionPlugIn.h"
#include "support/PatchDriver.h"

namespace qva {
namespace {

PropertyList points(std::initializer_list<std::pair<double, double>> pairs) {
  PropertyList list = PropertyList::array();
  for (const auto& [time, value] : pairs) {
    list.push_back({{"time", time}, {"value", value}});
  }
  return list;
}

// The output at each of the times (the first one 0) of a run that starts at host time 100.
std::vector<double> valuesAt(const PropertyList& stepPoints, std::initializer_list<double> times) {
  PatchDriver steps = driverFor<QVAStepFunctionPlugIn>();
  steps.setSetting("stepPoints", stepPoints);
  steps.start();
  std::vector<double> values;
  for (const double time : times) {
    steps.frame(100 + time);
    values.push_back(steps.number("outputValue"));
  }
  return values;
}

TEST(QVAStepFunctionPlugIn, HoldsEachValueFromItsTimeOn) {
  EXPECT_EQ(valuesAt(points({{0, 1}, {2, 5}}), {0, 1.99, 2, 1e6}), (std::vector<double>{1, 1, 5, 5}));
  EXPECT_EQ(valuesAt(points({{1, 7}}), {0, 0.5, 1}), (std::vector<double>{0, 0, 7}));
  EXPECT_EQ(valuesAt(points({}), {0, 10}), (std::vector<double>{0, 0}));
  // Equal times: the later point in the list wins.
  EXPECT_EQ(valuesAt(points({{1, 3}, {1, 4}}), {0, 0.5, 1}), (std::vector<double>{0, 0, 4}));
}

TEST(QVAStepFunctionPlugIn, EveryStartRestartsTheTime) {
  PatchDriver steps = driverFor<QVAStepFunctionPlugIn>();
  steps.setSetting("stepPoints", points({{0, 1}, {2, 5}}));
  steps.start();
  steps.frame(10);
  EXPECT_DOUBLE_EQ(steps.afterFrame(13).number("outputValue"), 5);
  steps.stop();
  steps.start();
  EXPECT_DOUBLE_EQ(steps.afterFrame(50).number("outputValue"), 1);
}

TEST(QVAStepFunctionPlugIn, SettingsRoundTripAndToleratePoorValues) {
  QVAStepFunctionPlugIn steps;
  const PropertyList saved = points({{0.5, -2}, {3, 4.25}});
  steps.setSerializedValueForKey(saved, "stepPoints");
  EXPECT_EQ(steps.serializedValueForKey("stepPoints"), saved);
  steps.setSerializedValueForKey(7, "savedVersion");
  EXPECT_EQ(steps.savedVersion(), 7u);
  EXPECT_EQ(steps.serializedValueForKey("savedVersion"), 0);

  // Not a list: ignored, nothing lost.
  steps.setSerializedValueForKey("garbage", "stepPoints");
  EXPECT_EQ(steps.stepPoints().size(), 2u);
  // Entries that are not dictionaries are skipped; odd fields read as numbers or 0.
  steps.setSerializedValueForKey(
      PropertyList::parse(R"([1, {"time": "2.5", "value": true}, {"value": null}])"), "stepPoints");
  ASSERT_EQ(steps.stepPoints().size(), 2u);
  EXPECT_DOUBLE_EQ(steps.stepPoints()[0].time(), 2.5);
  EXPECT_DOUBLE_EQ(steps.stepPoints()[0].value(), 1);
  EXPECT_DOUBLE_EQ(steps.stepPoints()[1].time(), 0);
  EXPECT_DOUBLE_EQ(steps.stepPoints()[1].value(), 0);
}

}  // namespace
}  // namespace qva
