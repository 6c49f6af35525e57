#include "foundation/gpi/GpioChipDriver.h"

#include <gpiod.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "foundation/gpi/GpioLineMap.h"

namespace qva {

namespace {

constexpr const char* kConsumer = "qva-gpi";

// The chips the kernel offers, in the order of their numbers.
std::vector<std::string> chipPaths() {
  std::vector<std::string> paths;
  std::error_code noDevices;
  for (const auto& entry : std::filesystem::directory_iterator("/dev", noDevices)) {
    if (entry.path().filename().string().starts_with("gpiochip")) {
      paths.push_back(entry.path().string());
    }
  }
  std::sort(paths.begin(), paths.end(), [](const std::string& a, const std::string& b) {
    return a.size() != b.size() ? a.size() < b.size() : a < b;
  });
  return paths;
}

template <std::size_t N>
bool linesOf(gpiod_chip* chip, const std::array<unsigned, N>& offsets, gpiod_line_bulk& bulk) {
  // libgpiod only reads the offsets, though its signature does not say so.
  return gpiod_chip_get_lines(chip, const_cast<unsigned*>(offsets.data()), N, &bulk) == 0;
}

}  // namespace

GpioChipDriver::~GpioChipDriver() {
  closeChip();
}

std::int32_t GpioChipDriver::registerNotification(const std::string&) {
  // Chips come and go with their boards; without any the GPIO subsystem is not there at all.
  return chipPaths().empty() ? GpiStatus::kDriverNotLoaded : GpiStatus::kOK;
}

GpiDeviceId GpioChipDriver::nextDeviceIdentifier(GpiDeviceId previous) {
  std::lock_guard lock(mutex_);
  if (previous != kNoGpiDevice) {
    return kNoGpiDevice;
  }
  if (chip_ == nullptr && !openFirstChip()) {
    return kNoGpiDevice;
  }
  return current_;
}

std::uint16_t GpioChipDriver::inputValue(GpiDeviceId device) {
  std::lock_guard lock(mutex_);
  gpiod_line_bulk bulk;
  std::array<int, GpioLineMap::kInputCount> levels{};
  if (device == kNoGpiDevice || device != current_ || !linesOf(chip_, GpioLineMap::inputLines(), bulk) ||
      gpiod_line_get_value_bulk(&bulk, levels.data()) != 0) {
    return 0;
  }
  return GpioLineMap::inputWord(levels);
}

std::int32_t GpioChipDriver::setOutputValue(std::uint16_t value, GpiDeviceId device, int) {
  // Setting a line's level returns as soon as the kernel has done it; there is nothing to time out.
  std::lock_guard lock(mutex_);
  gpiod_line_bulk bulk;
  if (device == kNoGpiDevice || device != current_ || !linesOf(chip_, GpioLineMap::outputLines(), bulk)) {
    return GpiStatus::kDeviceNotFound;
  }
  std::array<int, GpioLineMap::kOutputCount> levels = GpioLineMap::outputLevels(value);
  return gpiod_line_set_value_bulk(&bulk, levels.data()) == 0 ? GpiStatus::kOK : GpiStatus::kDeviceNotFound;
}

void GpioChipDriver::releaseDevice(GpiDeviceId device) {
  std::lock_guard lock(mutex_);
  if (device != kNoGpiDevice && device == current_) {
    closeChip();
  }
}

bool GpioChipDriver::openFirstChip() {
  for (const std::string& path : chipPaths()) {
    gpiod_chip* chip = gpiod_chip_open(path.c_str());
    if (chip == nullptr) {
      continue;
    }
    gpiod_line_bulk inputs;
    gpiod_line_bulk outputs;
    const std::array<int, GpioLineMap::kOutputCount> low{};
    // A chip whose lines another program holds is skipped, as a box in use elsewhere would be.
    if (GpioLineMap::chipFits(gpiod_chip_num_lines(chip)) &&
        linesOf(chip, GpioLineMap::inputLines(), inputs) &&
        linesOf(chip, GpioLineMap::outputLines(), outputs) &&
        gpiod_line_request_bulk_input(&inputs, kConsumer) == 0 &&
        gpiod_line_request_bulk_output(&outputs, kConsumer, low.data()) == 0) {
      chip_ = chip;
      current_ = ++lastIdentifier_;
      return true;
    }
    // Closing the chip also gives back any of its lines requested above.
    gpiod_chip_close(chip);
  }
  return false;
}

void GpioChipDriver::closeChip() {
  if (chip_ != nullptr) {
    gpiod_chip_close(chip_);
  }
  chip_ = nullptr;
  current_ = kNoGpiDevice;
}

}  // namespace qva
