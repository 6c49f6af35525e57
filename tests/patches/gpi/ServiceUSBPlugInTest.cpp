#include <gtest/gtest.h>

#include "foundation/dispatch/TaskQueue.h"
#include "framework/ExecutionContext.h"
#include "host/Composition.h"
#include "host/CompositionGraph.h"
#include "host/DriveSession.h"
#include "host/HostPatches.h"
#include "patches/AllPatches.h"
#include "patches/gpi/ServiceUSBPlugIn.h"
#include "support/DriveScript.h"

namespace qva {
namespace {

// Runs a script of steps against one GPI patch on the simulated box.
std::vector<PropertyList> driveGpi(const char* steps, const char* context = R"({"gpiDriver": "simulated"})") {
  return drivePatch("ServiceUSBPlugIn", PropertyList::parse(steps), PropertyList::object(),
                    PropertyList::parse(context));
}

// The values of the SetOutputValue calls a gpi step line lists.
std::vector<int> writtenValues(const PropertyList& gpiLine) {
  std::vector<int> values;
  for (const PropertyList& call : gpiLine["calls"]) {
    if (call["call"] == "SetOutputValue") {
      values.push_back(call["value"].get<int>());
    }
  }
  return values;
}

TEST(ServiceUSBPlugIn, PortsCountKeysFromOneAndTitlesFromZero) {
  const auto lines = driveGpi(R"([{"op": "ports"}])");
  const PropertyList& inputs = lines[0]["inputs"];
  ASSERT_EQ(inputs.size(), 8u);
  EXPECT_EQ(inputs[0]["key"], "inputOutput1OnOff");
  EXPECT_EQ(inputs[0]["attributes"]["name"], "Output 0 off/on");
  EXPECT_EQ(inputs[7]["key"], "inputOutput8OnOff");
  EXPECT_EQ(inputs[7]["attributes"]["name"], "Output 7 off/on");
  EXPECT_EQ(inputs[7]["attributes"]["default"], false);
  EXPECT_EQ(lines[0]["outputs"][2]["attributes"]["name"], "Status Message");
}

TEST(ServiceUSBPlugIn, EachOutputSwitchesItsBitOfTheWordReadAtEnable) {
  const auto lines = driveGpi(R"([
      {"op": "gpi", "attached": true},
      {"time": 0},
      {"time": 1, "inputs": {"inputOutput3OnOff": true}},
      {"op": "gpi", "inputValue": 261},
      {"op": "stop"}, {"op": "start"}, {"op": "enable"},
      {"time": 2, "inputs": {"inputOutput2OnOff": true}},
      {"time": 3},
      {"op": "gpi"}])");
  EXPECT_EQ(writtenValues(lines[3]), (std::vector<int>{0, 0, 0, 0, 0, 0, 0, 0, 4}))
      << "the first execution writes every output; turning output 3 on sets bit 2";
  EXPECT_EQ(lines[2]["outputs"]["outputCurrentValue"], 4);
  EXPECT_EQ(lines[2]["outputs"]["outputStatusMessage"], "Device Status OK.");

  // Re-enabled with 0x0105 on the inputs, output 2 on gives 0x0107 (output 3 is already on, bit 2 set).
  EXPECT_EQ(lines[9]["calls"][0]["call"], "ReleaseDevice");
  EXPECT_EQ(lines[9]["calls"][3], PropertyList::parse(R"({"call": "GetInputValue", "value": 261})"));
  EXPECT_EQ(writtenValues(lines[9]), (std::vector<int>{0x0107}));
  EXPECT_EQ(lines[7]["outputs"]["outputCurrentValue"], 0x0107);
  EXPECT_EQ(lines[8]["executed"], false) << "nothing changed, nothing is written";
}

TEST(ServiceUSBPlugIn, DriverStatusesShowAfterTheNextOutputChange) {
  const auto lines = driveGpi(R"([
      {"op": "gpi", "attached": true, "writeStatus": 13001},
      {"time": 0},
      {"op": "gpi", "writeStatus": 42},
      {"time": 1, "inputs": {"inputOutput1OnOff": true}},
      {"op": "gpi", "attached": false},
      {"time": 2, "inputs": {"inputOutput1OnOff": false}},
      {"op": "gpi", "attached": true, "writeStatus": 0},
      {"time": 3, "inputs": {"inputOutput1OnOff": true}}])");
  EXPECT_EQ(lines[1]["outputs"]["outputStatusCode"], 13001);
  EXPECT_EQ(lines[1]["outputs"]["outputStatusMessage"],
            "A call did not finish for some reason: Timeout was reached.");
  EXPECT_EQ(lines[3]["outputs"]["outputStatusCode"], 42);
  EXPECT_EQ(lines[3]["outputs"]["outputStatusMessage"], "Unknown error.");
  EXPECT_EQ(lines[5]["outputs"]["outputStatusCode"], 13006) << "the box was pulled out mid-run";
  EXPECT_EQ(lines[5]["outputs"]["outputStatusMessage"],
            "The device was not found. It might be in use by another application.");
  EXPECT_EQ(lines[7]["outputs"]["outputStatusCode"], 13006) << "a box plugged in again is a new device";
  EXPECT_EQ(lines[7]["outputs"]["outputCurrentValue"], 1) << "the value still follows the outputs";
  EXPECT_EQ(lines[7]["result"], true);
}

TEST(ServiceUSBPlugIn, AFailedRegistrationTakesNoDeviceAndEnableShowsNothing) {
  const auto lines = driveGpi(R"([
      {"op": "gpi", "attached": true, "registerStatus": 13003},
      {"op": "start"}, {"op": "enable"},
      {"op": "gpi"},
      {"time": 0, "inputs": {"inputOutput8OnOff": true}},
      {"op": "gpi"}])");
  EXPECT_EQ(lines[3]["calls"], PropertyList::parse(R"([{"call": "RegisterNotification",
      "deviceType": "TTTTTTTT", "status": 13003}])"));
  EXPECT_EQ(lines[2]["log"], PropertyList::array());
  const PropertyList& lastWrite = lines[5]["calls"].back();
  EXPECT_EQ(lastWrite["device"], false) << "writes still go out, with no device";
  EXPECT_EQ(lastWrite["value"], 0x80);
  EXPECT_EQ(lastWrite["timeout"], 60);
  EXPECT_EQ(lines[4]["outputs"]["outputStatusCode"], 13006);
}

TEST(ServiceUSBPlugIn, StatusTextsComeFromTheTableAndAnythingElseIsUnknown) {
  EXPECT_EQ(ServiceUSBPlugIn::statusMessage(0), "Device Status OK.");
  EXPECT_EQ(ServiceUSBPlugIn::statusMessage(13000),
            "No USB control blocks available. There are too many request executing.");
  EXPECT_EQ(ServiceUSBPlugIn::statusMessage(13009), "The API call is not supported.");
  for (const std::int32_t code : {42, 12999, 13010, -13006, -1}) {
    EXPECT_EQ(ServiceUSBPlugIn::statusMessage(code), "Unknown error.") << code;
  }
}

TEST(ServiceUSBPlugIn, ScriptsThatMisuseTheSimulatedBoxAreRefused) {
  EXPECT_THROW(driveGpi(R"([{"op": "gpi", "attached": true}])", "{}"), DriveError);
  EXPECT_THROW(driveGpi("[]", R"({"gpiDriver": "usb"})"), DriveError);
  EXPECT_THROW(driveGpi(R"([{"op": "gpi", "inputValue": 65536}])"), DriveError);
  EXPECT_THROW(driveGpi(R"([{"op": "gpi", "inputValue": -1}])"), DriveError);
  EXPECT_THROW(driveGpi(R"([{"op": "gpi", "attached": 1}])"), DriveError);
  EXPECT_THROW(driveGpi(R"([{"op": "gpi", "writeStatus": 4294967296}])"), DriveError);
  EXPECT_THROW(driveGpi(R"([{"op": "gpi", "pressed": 3}])"), DriveError);
  EXPECT_THROW(driveGpi(R"([{"time": 0, "inputs": {"inputOutput9OnOff": true}}])"), DriveError)
      << "there are eight outputs";
}

TEST(ServiceUSBPlugIn, ACompositionCanRunOnTheSimulatedBox) {
  const char* text = R"({"format": "qva-composition/1", "gpiDriver": "simulated",
      "gpiBox": {"attached": true, "inputValue": 261},
      "patches": [{"id": "gpi", "class": "ServiceUSBPlugIn", "inputs": {"inputOutput2OnOff": true}}]})";
  const Composition composition = Composition::parse(text, "gpi.qvc");
  TaskQueue queue;
  ExecutionContext context(queue);
  CompositionGraph graph(composition, bundledPatches(), context, queue);
  graph.evaluate(0);
  EXPECT_EQ(graph.outputValue({"gpi", "outputCurrentValue"}).indexValue(), 0x0102u);
  EXPECT_EQ(graph.outputValue({"gpi", "outputStatusMessage"}).stringValue(), "Device Status OK.");
  graph.stop();

  EXPECT_THROW(Composition::parse(R"({"format": "qva-composition/1", "gpiBox": {}})", "a.qvc"),
               CompositionError);
  EXPECT_THROW(Composition::parse(R"({"format": "qva-composition/1", "gpiDriver": "simulated",
      "gpiBox": {"inputValue": "on"}})",
                                  "a.qvc"),
               CompositionError);
}

TEST(ServiceUSBPlugIn, TheTallyExampleSwitchesItsOutputWhileHeldOnAir) {
  const Composition composition = Composition::load(QVA_SOURCE_DIR "/examples/gpi-tally.qvc");
  TaskQueue queue;
  ExecutionContext context(queue);
  CompositionGraph graph(composition, availablePatches(), context, queue);
  std::vector<std::uint32_t> values;
  for (const double time : {0.0, 1.0, 2.0, 3.0}) {
    graph.evaluate(time);
    values.push_back(graph.outputValue({"tally", "outputCurrentValue"}).indexValue());
  }
  // Input 9 of the simulated box is pressed; output 0 goes on once the timeline holds at its stop frame.
  EXPECT_EQ(values, (std::vector<std::uint32_t>{0x0100, 0x0100, 0x0101, 0x0101}));
  EXPECT_EQ(graph.outputValue({"tally", "outputStatusMessage"}).stringValue(), "Device Status OK.");
  graph.stop();
}

}  // namespace
}  // namespace qva
