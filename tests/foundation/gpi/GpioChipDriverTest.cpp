#include <gtest/gtest.h>

#include <filesystem>

#include "foundation/gpi/GpioChipDriver.h"

namespace qva {
namespace {

bool machineHasGpioChips() {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/dev", error)) {
    if (entry.path().filename().string().starts_with("gpiochip")) {
      return true;
    }
  }
  return false;
}

TEST(GpioChipDriver, WithoutChipsTheDriverIsMissingAndWritesFindNoDevice) {
  if (machineHasGpioChips()) {
    GTEST_SKIP() << "this machine has GPIO chips";
  }
  GpioChipDriver driver;
  EXPECT_EQ(driver.registerNotification("TTTTTTTT"), GpiStatus::kDriverNotLoaded);
  EXPECT_EQ(driver.nextDeviceIdentifier(kNoGpiDevice), kNoGpiDevice);
  EXPECT_EQ(driver.inputValue(kNoGpiDevice), 0);
  EXPECT_EQ(driver.setOutputValue(1, kNoGpiDevice, 60), GpiStatus::kDeviceNotFound);
  EXPECT_EQ(driver.setOutputValue(1, 7, 60), GpiStatus::kDeviceNotFound);
  driver.releaseDevice(7);
}

}  // namespace
}  // namespace qva
