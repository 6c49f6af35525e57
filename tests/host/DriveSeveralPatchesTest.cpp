#include <gtest/gtest.h>

#include <chrono>

#include "host/DriveSession.h"
#include "patches/AllPatches.h"

namespace qva {
namespace {

std::vector<PropertyList> drive(const char* script) {
  DriveOptions options;
  options.registry = &bundledPatches();
  return DriveSession::runScript(PropertyList::parse(script), options);
}

TEST(DriveSeveralPatches, StepsActOnTheNamedPatchAndLinesNameIt) {
  const auto lines = drive(R"({"patches": [
      {"class": "ConvertTimePlugIn"},
      {"class": "QVAInterpolationPlugIn", "settings": {"savedVersion": 3}}], "steps": [
      {"time": 0, "inputs": {"inputTime": 978307200}}, {"time": 5.25, "patch": 1, "inputs": {"inputValue2": 10}},
      {"op": "serialize", "patch": 1}, {"op": "stop"}, {"op": "start"}]})");
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[0]["patch"], 0);
  EXPECT_EQ(lines[0]["outputs"]["outputTime"], 0.0);
  EXPECT_FALSE(lines[0]["outputs"].contains("outputValue"));
  EXPECT_EQ(lines[1]["patch"], 1);
  EXPECT_EQ(lines[1]["outputs"]["outputValue"], 5.0);
  EXPECT_EQ(lines[2]["patch"], 1);
  EXPECT_TRUE(lines[2]["settings"].contains("savedVersion"));
  EXPECT_EQ(lines[4]["result"], true) << "start without \"patch\" starts every patch";

  // A script with one "class" prints no patch index.
  EXPECT_FALSE(drive(R"({"class": "ConvertTimePlugIn", "steps": [{"time": 0}]})")[0].contains("patch"));
}

TEST(DriveSeveralPatches, WaitUntilADeliveryEndsAtOnceOrSaysThatNoneCame) {
  const auto start = std::chrono::steady_clock::now();
  const auto lines = drive(
      R"({"class": "ConvertTimePlugIn", "steps": [{"op": "wait", "seconds": 0.2, "until": "delivery"}]})");
  EXPECT_EQ(lines[0]["delivered"], false);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
}

TEST(DriveSeveralPatches, BadScriptsAreRefused) {
  for (const char* script : {
           R"({"class": "ConvertTimePlugIn", "patches": [{"class": "ConvertTimePlugIn"}], "steps": []})",
           R"({"patches": [], "steps": []})",
           R"({"patches": [{"settings": {}}], "steps": []})",
           R"({"patches": [{"class": "NoSuchPlugIn"}], "steps": []})",
           R"({"patches": [{"class": "ConvertTimePlugIn"}], "steps": [{"time": 0, "patch": 1}]})",
           R"({"class": "ConvertTimePlugIn", "steps": [{"time": 0, "patch": -1}]})",
           R"({"class": "ConvertTimePlugIn", "steps": [{"op": "wait", "seconds": 1, "until": "forever"}]})",
       }) {
    EXPECT_THROW(drive(script), DriveError) << script;
  }
}

}  // namespace
}  // namespace qva
