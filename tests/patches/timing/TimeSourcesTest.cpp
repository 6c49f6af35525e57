#include <gtest/gtest.h>

#include <chrono>
#include <cmath>

#include "framework/PatchRegistry.h"
#include "framework/Structure.h"
#include "patches/timing/ConvertTimePlugIn.h"
#include "patches/timing/DateTimeFormatPlugIn.h"
#include "patches/timing/QVAPatchTimePlugIn.h"
#include "patches/timing/QVARenderTimePlugIn.h"
#include "patches/timing/TimingPatches.h"
#include "support/PatchDriver.h"

namespace qva {
namespace {

double wallClockReferenceTime() {
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count() - 978307200;
}

std::vector<std::string> strings(const Value& value) {
  std::vector<std::string> result;
  if (const StructureRef structure = value.structureValue()) {
    for (const Structure::Member& member : structure->members()) {
      result.push_back(member.value.stringValue());
    }
  }
  return result;
}

TEST(QVAPatchTimePlugIn, CountsFromTheFirstExecutionAcrossRestarts) {
  PatchDriver clock = driverFor<QVAPatchTimePlugIn>();
  clock.start();
  EXPECT_DOUBLE_EQ(clock.afterFrame(10).number("outputTime"), 0);
  EXPECT_DOUBLE_EQ(clock.afterFrame(12.5).number("outputTime"), 2.5);
  clock.stop();
  clock.start();
  EXPECT_DOUBLE_EQ(clock.afterFrame(20).number("outputTime"), 10);
}

TEST(QVARenderTimePlugIn, WithoutArgumentsGivesTheWallClockAndAPreviewList) {
  PatchDriver render = driverFor<QVARenderTimePlugIn>();
  render.start();
  EXPECT_NEAR(render.afterFrame(3).number("outputTime"), wallClockReferenceTime(), 5);
  EXPECT_EQ(strings(render.output("outputNextNames")), (std::vector<std::string>{"One", "Two", "Three"}));
  EXPECT_TRUE(render.output("outputCurrentName").isNone());
}

TEST(QVARenderTimePlugIn, ReadsTheClipTimingFromTheArguments) {
  PatchDriver render = driverFor<QVARenderTimePlugIn>();
  render.start();
  PropertyList arguments = {
      {"referenceTime", 1000.5}, {"currentName", "Intro"},  {"nextNames", {"A", "B"}}, {"elapsedTime", 2},
      {"remainingTime", 8},      {"percentageElapsed", 20}, {"opacity", 0.5},          {"texture", 1}};
  EXPECT_DOUBLE_EQ(render.afterFrame(0, arguments).number("outputTime"), 1000.5);
  EXPECT_EQ(render.string("outputCurrentName"), "Intro");
  EXPECT_EQ(strings(render.output("outputNextNames")), (std::vector<std::string>{"A", "B"}));
  EXPECT_DOUBLE_EQ(render.number("outputElapsedTime"), 2);
  EXPECT_DOUBLE_EQ(render.number("outputRemainingTime"), 8);
  EXPECT_DOUBLE_EQ(render.number("outputPercentageElapsed"), 20);
  EXPECT_DOUBLE_EQ(render.number("outputAbsoluteElapsedTime"), 0);
  EXPECT_DOUBLE_EQ(render.number("outputVideoOpacity"), 0.5);
  EXPECT_EQ(render.output("outputVideoAlpha"), Value(0.0)) << "never written: its initial value";
  EXPECT_TRUE(render.boolean("outputVideoActive"));

  // Unchanged names are not written again; a changed list is.
  const StructureRef written = render.output("outputNextNames").structureValue();
  arguments.erase("opacity");
  arguments.erase("texture");
  arguments.erase("referenceTime");
  EXPECT_EQ(render.afterFrame(1, arguments).output("outputNextNames").structureValue(), written);
  EXPECT_DOUBLE_EQ(render.number("outputVideoOpacity"), 0.5);  // kept while absent
  EXPECT_FALSE(render.boolean("outputVideoActive"));
  EXPECT_NEAR(render.number("outputTime"), wallClockReferenceTime(), 5);
  arguments["nextNames"] = {"A", "C"};
  arguments.erase("currentName");
  render.frame(2, arguments);
  EXPECT_EQ(strings(render.output("outputNextNames")), (std::vector<std::string>{"A", "C"}));
  EXPECT_TRUE(render.output("outputCurrentName").isNone());
}

TEST(ConvertTimePlugIn, ConvertsUnixTimeToReferenceTime) {
  PatchDriver convert = driverFor<ConvertTimePlugIn>();
  convert.set("inputTime", 978307200.0);
  EXPECT_DOUBLE_EQ(convert.afterFrame(0).number("outputTime"), 0);
  convert.set("inputTime", 0.0);
  EXPECT_DOUBLE_EQ(convert.afterFrame(0).number("outputTime"), -978307200);
}

std::string formatted(double time, const std::string& zone, const char* pattern = nullptr) {
  PatchDriver format = driverFor<DateTimeFormatPlugIn>();
  format.context().setTimeZone(zone);
  format.set("inputTime", time);
  if (pattern != nullptr) {
    format.set("inputCustomFormat", pattern);
  }
  return format.afterFrame(0).string("outputFormattedTime");
}

TEST(DateTimeFormatPlugIn, FormatsReferenceTimesInTheLocalZone) {
  EXPECT_EQ(formatted(0, "UTC"), "01.01.2001 12:00:00");  // midnight on the 12-hour clock
  EXPECT_EQ(formatted(0, "Europe/Berlin"), "01.01.2001 01:00:00");
  EXPECT_EQ(formatted(13 * 3600 + 61.9, "UTC", "yyyy-MM-dd HH:mm:ss"), "2001-01-01 13:01:01");
  EXPECT_EQ(formatted(-978307200, "UTC", "yyyy"), "1970");
  // An unknown zone falls back to the machine's, as an empty one does.
  EXPECT_EQ(formatted(0, "Nowhere/Special"), formatted(0, ""));
}

TEST(DateTimeFormatPlugIn, FollowsPatternChangesAndSurvivesOddInput) {
  PatchDriver format = driverFor<DateTimeFormatPlugIn>();
  format.context().setTimeZone("UTC");
  format.set("inputTime", 0.0);
  format.frame(0);
  format.set("inputCustomFormat", "'Day' d");
  EXPECT_EQ(format.afterFrame(0).string("outputFormattedTime"), "Day 1");
  format.set("inputCustomFormat", "");
  EXPECT_EQ(format.afterFrame(0).string("outputFormattedTime"), "");
  format.set("inputCustomFormat", "yyyy");
  format.set("inputTime", std::nan(""));
  EXPECT_EQ(format.afterFrame(0).string("outputFormattedTime"), "");
  format.set("inputTime", 1e300);
  EXPECT_TRUE(format.frame(0));
}

TEST(TimingPatches, RegistersEveryClassWithItsSettingsKeys) {
  PatchRegistry registry;
  registerTimingPatches(registry);
  for (const char* name :
       {"QVASmoothPlugIn", "QVAStepFunctionPlugIn", "QVAStopframesPlugIn", "QVAStopWatchPlugIn",
        "QVAPatchTimePlugIn", "QVARenderTimePlugIn", "ConvertTimePlugIn", "DateTimeFormatPlugIn"}) {
    const PatchClass* patchClass = registry.find(name);
    ASSERT_NE(patchClass, nullptr) << name;
    ASSERT_FALSE(patchClass->plugInKeys.empty());
    EXPECT_EQ(patchClass->plugInKeys.front(), "savedVersion");
    EXPECT_NE(registry.create(name), nullptr);
  }
}

}  // namespace
}  // namespace qva
