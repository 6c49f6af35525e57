#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "foundation/gpi/GpiDriver.h"
#include "framework/PropertyList.h"

namespace qva {

// A GPI box in memory: eight outputs, sixteen inputs, status codes chosen by its user, and a plug that
// can be pulled. A box plugged in again is a new device, so identifiers handed out before stay stale.
// Every driver call is recorded, so that tests and `qva drive` can show what a patch asked of the box.
class SimulatedGpiBox final : public GpiDriver {
 public:
  // A box that nobody reads the calls of (a composition playing for hours) keeps no record of them.
  explicit SimulatedGpiBox(bool recordCalls = true) : recordCalls_(recordCalls) {}

  std::int32_t registerNotification(const std::string& deviceType) override;
  GpiDeviceId nextDeviceIdentifier(GpiDeviceId previous) override;
  std::uint16_t inputValue(GpiDeviceId device) override;
  std::int32_t setOutputValue(std::uint16_t value, GpiDeviceId device, int timeout) override;
  void releaseDevice(GpiDeviceId device) override;

  bool attached() const;
  void setAttached(bool attached);
  std::uint16_t currentInputValue() const;
  void setInputValue(std::uint16_t value);
  void setRegisterStatus(std::int32_t status);
  void setWriteStatus(std::int32_t status);
  // The word last written successfully to the outputs.
  std::uint16_t outputValue() const;

  // The calls since the previous take, oldest first, each as an object naming the call and its
  // arguments and result.
  std::vector<PropertyList> takeCalls();

 private:
  bool isCurrent(GpiDeviceId device) const;
  void record(PropertyList call);

  mutable std::mutex mutex_;
  // The identifier of the box while plugged in; each plugging in makes a new one.
  GpiDeviceId current_ = kNoGpiDevice;
  GpiDeviceId lastIdentifier_ = kNoGpiDevice;
  std::uint16_t inputValue_ = 0;
  std::uint16_t outputValue_ = 0;
  std::int32_t registerStatus_ = GpiStatus::kOK;
  std::int32_t writeStatus_ = GpiStatus::kOK;
  const bool recordCalls_;
  std::vector<PropertyList> calls_;
};

}  // namespace qva
