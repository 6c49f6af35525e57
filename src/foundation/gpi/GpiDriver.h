#pragma once

#include <cstdint>
#include <string>

namespace qva {

// Identifies one box as long as it stays plugged in; 0 is no device.
using GpiDeviceId = std::uint64_t;
constexpr GpiDeviceId kNoGpiDevice = 0;

// Status codes the GPI box drivers return; 0 is success.
namespace GpiStatus {
constexpr std::int32_t kOK = 0;
constexpr std::int32_t kNoControlBlocks = 13000;
constexpr std::int32_t kTimeout = 13001;
constexpr std::int32_t kInterruptLevel = 13002;
constexpr std::int32_t kDriverNotLoaded = 13003;
constexpr std::int32_t kWrongPipeIndex = 13004;
constexpr std::int32_t kTooManyDevices = 13005;
constexpr std::int32_t kDeviceNotFound = 13006;
constexpr std::int32_t kNilResult = 13007;
constexpr std::int32_t kNoConfiguration = 13008;
constexpr std::int32_t kNotSupported = 13009;
}  // namespace GpiStatus

// The operations a GPI box driver offers: sixteen inputs read as one word, eight outputs written as the
// low bits of one word. Calls come from the host thread and return at once (a write waits at most its
// timeout); device arrival and removal are not reported back.
class GpiDriver {
 public:
  virtual ~GpiDriver() = default;

  // Registers for notifications about boxes of the given device type; returns a status code.
  virtual std::int32_t registerNotification(const std::string& deviceType) = 0;
  // The box after previous (kNoGpiDevice: the first), or kNoGpiDevice when there is none.
  virtual GpiDeviceId nextDeviceIdentifier(GpiDeviceId previous) = 0;
  // The sixteen inputs of the box as one word (0 for an unknown box).
  virtual std::uint16_t inputValue(GpiDeviceId device) = 0;
  // Writes the outputs; the timeout is in driver units. Returns a status code.
  virtual std::int32_t setOutputValue(std::uint16_t value, GpiDeviceId device, int timeout) = 0;
  virtual void releaseDevice(GpiDeviceId device) = 0;
};

}  // namespace qva
