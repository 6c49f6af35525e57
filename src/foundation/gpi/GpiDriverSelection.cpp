#include "foundation/gpi/GpiDriverSelection.h"

#include <mutex>
#include <utility>

#include "foundation/gpi/GpioChipDriver.h"

namespace qva {

namespace {

std::mutex& selectionMutex() {
  static std::mutex mutex;
  return mutex;
}

std::shared_ptr<GpiDriver>& selectedDriver() {
  static std::shared_ptr<GpiDriver> driver;
  return driver;
}

}  // namespace

std::shared_ptr<GpiDriver> currentGpiDriver() {
  std::lock_guard lock(selectionMutex());
  std::shared_ptr<GpiDriver>& driver = selectedDriver();
  if (!driver) {
    driver = std::make_shared<GpioChipDriver>();
  }
  return driver;
}

ScopedGpiDriver::ScopedGpiDriver(std::shared_ptr<GpiDriver> driver) {
  std::lock_guard lock(selectionMutex());
  previous_ = std::exchange(selectedDriver(), std::move(driver));
}

ScopedGpiDriver::~ScopedGpiDriver() {
  std::lock_guard lock(selectionMutex());
  selectedDriver() = std::move(previous_);
}

}  // namespace qva
