#include <gtest/gtest.h>

#include "foundation/gpi/SimulatedGpiBox.h"

namespace qva {
namespace {

TEST(SimulatedGpiBox, ADetachedBoxIsNotFoundAndAReattachedOneIsANewDevice) {
  SimulatedGpiBox box;
  EXPECT_EQ(box.nextDeviceIdentifier(kNoGpiDevice), kNoGpiDevice);
  EXPECT_EQ(box.setOutputValue(1, kNoGpiDevice, 60), GpiStatus::kDeviceNotFound);

  box.setAttached(true);
  box.setInputValue(0x0105);
  const GpiDeviceId first = box.nextDeviceIdentifier(kNoGpiDevice);
  ASSERT_NE(first, kNoGpiDevice);
  EXPECT_EQ(box.nextDeviceIdentifier(first), kNoGpiDevice) << "one box at most";
  EXPECT_EQ(box.inputValue(first), 0x0105);
  EXPECT_EQ(box.setOutputValue(0x0107, first, 60), GpiStatus::kOK);
  EXPECT_EQ(box.outputValue(), 0x0107);

  box.setAttached(true);
  EXPECT_EQ(box.nextDeviceIdentifier(kNoGpiDevice), first) << "attaching an attached box changes nothing";

  box.setAttached(false);
  EXPECT_EQ(box.setOutputValue(2, first, 60), GpiStatus::kDeviceNotFound);
  EXPECT_EQ(box.inputValue(first), 0);
  box.setAttached(true);
  const GpiDeviceId second = box.nextDeviceIdentifier(kNoGpiDevice);
  EXPECT_NE(second, first);
  EXPECT_EQ(box.setOutputValue(3, first, 60), GpiStatus::kDeviceNotFound) << "the old identifier is stale";
  EXPECT_EQ(box.setOutputValue(4, second, 60), GpiStatus::kOK);
  EXPECT_EQ(box.outputValue(), 4);
}

TEST(SimulatedGpiBox, InjectedStatusesAreReturnedAndEveryCallIsRecordedOnce) {
  SimulatedGpiBox box;
  box.setAttached(true);
  box.setRegisterStatus(GpiStatus::kDriverNotLoaded);
  box.setWriteStatus(42);
  EXPECT_EQ(box.registerNotification("TTTTTTTT"), GpiStatus::kDriverNotLoaded);
  const GpiDeviceId device = box.nextDeviceIdentifier(kNoGpiDevice);
  EXPECT_EQ(box.setOutputValue(9, device, 60), 42);
  EXPECT_EQ(box.outputValue(), 0) << "a failed write switches nothing";
  EXPECT_EQ(box.setOutputValue(9, kNoGpiDevice, 60), GpiStatus::kDeviceNotFound)
      << "the injected status is for writes through a current identifier only";
  box.releaseDevice(device);

  const std::vector<PropertyList> calls = box.takeCalls();
  ASSERT_EQ(calls.size(), 5u);
  EXPECT_EQ(calls[0], PropertyList::parse(R"({"call": "RegisterNotification", "deviceType": "TTTTTTTT",
      "status": 13003})"));
  EXPECT_EQ(calls[1], PropertyList::parse(R"({"call": "GetNextDeviceIdentifier", "device": true})"));
  EXPECT_EQ(calls[2], PropertyList::parse(R"({"call": "SetOutputValue", "value": 9, "device": true,
      "timeout": 60, "status": 42})"));
  EXPECT_EQ(calls[3]["device"], false);
  EXPECT_EQ(calls[4], PropertyList::parse(R"({"call": "ReleaseDevice"})"));
  EXPECT_TRUE(box.takeCalls().empty());

  SimulatedGpiBox unrecorded(false);
  unrecorded.setAttached(true);
  EXPECT_EQ(unrecorded.setOutputValue(1, unrecorded.nextDeviceIdentifier(kNoGpiDevice), 60), GpiStatus::kOK);
  EXPECT_TRUE(unrecorded.takeCalls().empty());
}

}  // namespace
}  // namespace qva
