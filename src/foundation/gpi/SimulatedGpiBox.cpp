#include "foundation/gpi/SimulatedGpiBox.h"

#include <utility>

namespace qva {

std::int32_t SimulatedGpiBox::registerNotification(const std::string& deviceType) {
  std::lock_guard lock(mutex_);
  record({{"call", "RegisterNotification"}, {"deviceType", deviceType}, {"status", registerStatus_}});
  return registerStatus_;
}

GpiDeviceId SimulatedGpiBox::nextDeviceIdentifier(GpiDeviceId previous) {
  std::lock_guard lock(mutex_);
  // One box at most: there is nothing after it.
  const GpiDeviceId device = previous == kNoGpiDevice ? current_ : kNoGpiDevice;
  record({{"call", "GetNextDeviceIdentifier"}, {"device", device != kNoGpiDevice}});
  return device;
}

std::uint16_t SimulatedGpiBox::inputValue(GpiDeviceId device) {
  std::lock_guard lock(mutex_);
  const std::uint16_t value = isCurrent(device) ? inputValue_ : 0;
  record({{"call", "GetInputValue"}, {"value", value}});
  return value;
}

std::int32_t SimulatedGpiBox::setOutputValue(std::uint16_t value, GpiDeviceId device, int timeout) {
  std::lock_guard lock(mutex_);
  const std::int32_t status = isCurrent(device) ? writeStatus_ : GpiStatus::kDeviceNotFound;
  if (status == GpiStatus::kOK) {
    outputValue_ = value;
  }
  record({{"call", "SetOutputValue"},
          {"value", value},
          {"device", device != kNoGpiDevice},
          {"timeout", timeout},
          {"status", status}});
  return status;
}

void SimulatedGpiBox::releaseDevice(GpiDeviceId) {
  std::lock_guard lock(mutex_);
  record({{"call", "ReleaseDevice"}});
}

bool SimulatedGpiBox::attached() const {
  std::lock_guard lock(mutex_);
  return current_ != kNoGpiDevice;
}

void SimulatedGpiBox::setAttached(bool attached) {
  std::lock_guard lock(mutex_);
  if (attached == (current_ != kNoGpiDevice)) {
    return;
  }
  current_ = attached ? ++lastIdentifier_ : kNoGpiDevice;
}

std::uint16_t SimulatedGpiBox::currentInputValue() const {
  std::lock_guard lock(mutex_);
  return inputValue_;
}

void SimulatedGpiBox::setInputValue(std::uint16_t value) {
  std::lock_guard lock(mutex_);
  inputValue_ = value;
}

void SimulatedGpiBox::setRegisterStatus(std::int32_t status) {
  std::lock_guard lock(mutex_);
  registerStatus_ = status;
}

void SimulatedGpiBox::setWriteStatus(std::int32_t status) {
  std::lock_guard lock(mutex_);
  writeStatus_ = status;
}

std::uint16_t SimulatedGpiBox::outputValue() const {
  std::lock_guard lock(mutex_);
  return outputValue_;
}

std::vector<PropertyList> SimulatedGpiBox::takeCalls() {
  std::lock_guard lock(mutex_);
  return std::exchange(calls_, {});
}

void SimulatedGpiBox::record(PropertyList call) {
  if (recordCalls_) {
    calls_.push_back(std::move(call));
  }
}

bool SimulatedGpiBox::isCurrent(GpiDeviceId device) const {
  return device != kNoGpiDevice && device == current_;
}

}  // namespace qva
