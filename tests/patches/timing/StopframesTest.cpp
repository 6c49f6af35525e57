#include <gtest/gtest.h>

#include "framework/Structure.h"
#include "patches/timing/QVAStopframesPlugIn.h"
#include "support/PatchDriver.h"

namespace qva {
namespace {

PropertyList stopframes(std::initializer_list<double> times) {
  PropertyList list = PropertyList::array();
  for (const double time : times) {
    list.push_back({{"time", time}, {"name", "Stopframe"}});
  }
  return list;
}

void startWith(PatchDriver& patch, const PropertyList& list) {
  patch.setSetting("stopframes", list);
  patch.start();
}

// Frames every 0.3 s of host time from `from` to `to`, starting at host time 100.
void run(PatchDriver& patch, double from, double to) {
  for (double time = from; time <= to + 1e-9; time += 0.3) {
    patch.frame(100 + time);
  }
}

TEST(QVAStopframesPlugIn, PausesAtTheFirstFrameAtOrAfterAStopframe) {
  PatchDriver patch = driverFor<QVAStopframesPlugIn>();
  startWith(patch, stopframes({2, 5}));
  run(patch, 0, 1.8);
  EXPECT_NEAR(patch.number("outputTime"), 1.8, 1e-9);
  EXPECT_FALSE(patch.boolean("outputWaitingForTrigger"));
  run(patch, 2.1, 2.1);
  EXPECT_NEAR(patch.number("outputTime"), 2.1, 1e-9);  // overshoots the stop frame by up to a frame
  EXPECT_TRUE(patch.boolean("outputWaitingForTrigger"));
  run(patch, 2.4, 4.2);
  EXPECT_NEAR(patch.number("outputTime"), 2.1, 1e-9);
  EXPECT_TRUE(patch.boolean("outputWaitingForTrigger"));
}

TEST(QVAStopframesPlugIn, TriggerResumesWithoutAJumpAndStaysLatched) {
  PatchDriver patch = driverFor<QVAStopframesPlugIn>();
  startWith(patch, stopframes({2, 5}));
  run(patch, 0, 3.0);  // waiting at 2.1 since host time 102.1
  patch.set("inputTrigger", true);
  EXPECT_NEAR(patch.afterFrame(104).number("outputTime"), 2.1, 1e-9);
  EXPECT_FALSE(patch.boolean("outputWaitingForTrigger"));
  EXPECT_NEAR(patch.afterFrame(105).number("outputTime"), 3.1, 1e-9);

  // The trigger is still true at the next stop frame: it holds for a single frame.
  EXPECT_TRUE(patch.afterFrame(107).boolean("outputWaitingForTrigger"));
  EXPECT_NEAR(patch.number("outputTime"), 5.1, 1e-9);
  EXPECT_FALSE(patch.afterFrame(107.5).boolean("outputWaitingForTrigger"));
  EXPECT_NEAR(patch.number("outputTime"), 5.1, 1e-9);
  EXPECT_NEAR(patch.afterFrame(108).number("outputTime"), 5.6, 1e-9);
}

TEST(QVAStopframesPlugIn, StopframeAtZeroIsSkippedOnlyOnTheFirstRunAfterLoading) {
  PatchDriver patch = driverFor<QVAStopframesPlugIn>();
  startWith(patch, stopframes({0, 3}));
  patch.frame(10);
  EXPECT_FALSE(patch.afterFrame(11).boolean("outputWaitingForTrigger"));
  EXPECT_DOUBLE_EQ(patch.number("outputTime"), 1);

  patch.stop();
  patch.start();
  EXPECT_TRUE(patch.afterFrame(20).boolean("outputWaitingForTrigger"));
  EXPECT_DOUBLE_EQ(patch.afterFrame(21).number("outputTime"), 0);
}

TEST(QVAStopframesPlugIn, ActiveUntilTheCompositionDurationAndOtherOutputs) {
  PatchDriver patch = driverFor<QVAStopframesPlugIn>();
  patch.setSetting("compositionDuration", 1.0);
  patch.setSetting("stopframes", stopframes({0.5}));
  patch.start();
  patch.frame(0);
  patch.frame(0.6);  // paused at 0.6
  EXPECT_TRUE(patch.afterFrame(3).boolean("outputActive"));
  patch.set("inputTrigger", true);
  patch.frame(3.2);
  EXPECT_NEAR(patch.afterFrame(3.5).number("outputTime"), 0.9, 1e-9);
  EXPECT_TRUE(patch.boolean("outputActive"));
  EXPECT_FALSE(patch.afterFrame(4).boolean("outputActive"));
  EXPECT_DOUBLE_EQ(patch.number("outputCompositionDuration"), 1);

  const StructureRef list = patch.output("outputStopframes").structureValue();
  ASSERT_TRUE(list && list->isArray() && list->size() == 1);
  const StructureRef first = list->at(0).structureValue();
  ASSERT_TRUE(first && first->find("time") && first->find("name"));
  EXPECT_DOUBLE_EQ(first->find("time")->numberValue(), 0.5);
  EXPECT_EQ(first->find("name")->stringValue(), "Stopframe");
}

TEST(QVAStopframesPlugIn, PublishesToTheContextOnlyWhenEnabled) {
  PatchDriver patch = driverFor<QVAStopframesPlugIn>();
  patch.setSetting("compositionDuration", 12.5);
  patch.setSetting("stopframes", stopframes({1, 4}));
  patch.start();
  const PropertyList& info = patch.context().userInfo();
  EXPECT_EQ(info.at(QVAStopframesPlugIn::kCompositionDurationInfoKey), 12.5);
  EXPECT_EQ(info.at(QVAStopframesPlugIn::kStopframesInfoKey), stopframes({1, 4}));

  PatchDriver quiet = driverFor<QVAStopframesPlugIn>();
  quiet.setSetting("enableStopframesInQVAApps", false);
  quiet.setSetting("stopframes", stopframes({0.5}));
  quiet.start();
  EXPECT_TRUE(quiet.context().userInfo().empty());
  quiet.frame(0);
  EXPECT_TRUE(quiet.afterFrame(1).boolean("outputWaitingForTrigger"));
}

TEST(QVAStopframesPlugIn, SettingsRoundTripAndToleratePoorValues) {
  QVAStopframesPlugIn patch;
  EXPECT_EQ(patch.serializedValueForKey("compositionDuration"), 30.0);
  EXPECT_EQ(patch.serializedValueForKey("enableStopframesInQVAApps"), true);
  EXPECT_EQ(patch.serializedValueForKey("stopframes"), PropertyList::array());

  const PropertyList saved = stopframes({3, 1});  // kept in its saved order
  patch.setSerializedValueForKey(saved, "stopframes");
  EXPECT_EQ(patch.serializedValueForKey("stopframes"), saved);
  EXPECT_DOUBLE_EQ(patch.nextStopframeAfterTime(0), 3);
  EXPECT_DOUBLE_EQ(patch.nextStopframeAfterTime(3), std::numeric_limits<float>::max());

  patch.setSerializedValueForKey("45.5", "compositionDuration");
  patch.setSerializedValueForKey(0, "enableStopframesInQVAApps");
  patch.setSerializedValueForKey(PropertyList::object(), "stopframes");
  patch.setSerializedValueForKey(PropertyList::parse(R"([{"time": [1], "name": 5}])"), "stopframes");
  EXPECT_DOUBLE_EQ(patch.compositionDuration(), 45.5);
  EXPECT_FALSE(patch.enableStopframesInQVAApps());
  ASSERT_EQ(patch.stopframes().size(), 1u);
  EXPECT_DOUBLE_EQ(patch.stopframes()[0].time(), 0);
  EXPECT_EQ(patch.stopframes()[0].name(), "5");
}

}  // namespace
}  // namespace qva
