#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "foundation/gpi/GpiDriver.h"

struct gpiod_chip;

namespace qva {

// A GPI box on the kernel's GPIO character device: the first chip under /dev with enough lines, mapped
// as GpioLineMap says. One chip is held at a time, from the first look-up until it is released. A write
// to a chip that went away reports the device as not found.
class GpioChipDriver final : public GpiDriver {
 public:
  GpioChipDriver() = default;
  ~GpioChipDriver() override;
  GpioChipDriver(const GpioChipDriver&) = delete;
  GpioChipDriver& operator=(const GpioChipDriver&) = delete;

  std::int32_t registerNotification(const std::string& deviceType) override;
  GpiDeviceId nextDeviceIdentifier(GpiDeviceId previous) override;
  std::uint16_t inputValue(GpiDeviceId device) override;
  std::int32_t setOutputValue(std::uint16_t value, GpiDeviceId device, int timeout) override;
  void releaseDevice(GpiDeviceId device) override;

 private:
  // Opens the first chip that fits and requests its lines; false when none could be had.
  bool openFirstChip();
  void closeChip();

  std::mutex mutex_;
  gpiod_chip* chip_ = nullptr;
  GpiDeviceId current_ = kNoGpiDevice;
  GpiDeviceId lastIdentifier_ = kNoGpiDevice;
};

}  // namespace qva
