#include "patches/gpi/ServiceUSBPlugIn.h"

#include <array>
#include <utility>

#include "foundation/gpi/GpiDriverSelection.h"

namespace qva {

namespace {

// The box type the driver is asked to report.
constexpr const char* kDeviceType = "TTTTTTTT";
// How long a write may take, in driver units.
constexpr int kWriteTimeout = 60;
constexpr unsigned kOutputCount = 8;

std::string outputKey(unsigned output) {
  return "inputOutput" + std::to_string(output + 1) + "OnOff";
}

}  // namespace

const PatchClass& ServiceUSBPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "ServiceUSBPlugIn";
    c.name = "QVA GPI (Service USB)";
    c.description = "Patch supporting GPI input and output using a Service USB plus box";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    std::vector<std::string> order;
    // The keys count the outputs from 1, the titles from 0.
    for (unsigned output = 0; output < kOutputCount; ++output) {
      c.inputs.push_back(PortDescription::port(outputKey(output), PortType::Boolean,
                                               "Output " + std::to_string(output) + " off/on", Value(false)));
      order.push_back(outputKey(output));
    }
    c.outputs = {PortDescription::port("outputCurrentValue", PortType::Index, "Device Value"),
                 PortDescription::port("outputStatusCode", PortType::Index, "Status Code"),
                 PortDescription::port("outputStatusMessage", PortType::String, "Status Message")};
    for (const PortDescription& output : c.outputs) {
      order.push_back(output.key);
    }
    c.sortedPropertyPortKeys = order;
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<ServiceUSBPlugIn>(); };
    return c;
  }();
  return patchClass;
}

std::string ServiceUSBPlugIn::statusMessage(std::int32_t code) {
  static const std::array<std::pair<std::int32_t, const char*>, 11> messages = {{
      {GpiStatus::kOK, "Device Status OK."},
      {GpiStatus::kNoControlBlocks, "No USB control blocks available. There are too many request executing."},
      {GpiStatus::kTimeout, "A call did not finish for some reason: Timeout was reached."},
      {GpiStatus::kInterruptLevel, "Call was issued from the interrupt level."},
      {GpiStatus::kDriverNotLoaded, "Couldn't find the USB SERVICE driver. Probably it is not loaded."},
      {GpiStatus::kWrongPipeIndex,
       "A wrong index for the read/write pipe was specified (valid values are 0, 1 and 2)."},
      {GpiStatus::kTooManyDevices,
       "The maximum of USB SERVICE devices that can be connected has been reached."},
      {GpiStatus::kDeviceNotFound, "The device was not found. It might be in use by another application."},
      {GpiStatus::kNilResult, "A call to core foundation returned NIL."},
      {GpiStatus::kNoConfiguration, "No configuration was found."},
      {GpiStatus::kNotSupported, "The API call is not supported."},
  }};
  for (const auto& [known, message] : messages) {
    if (known == code) {
      return message;
    }
  }
  return "Unknown error.";
}

ServiceUSBPlugIn::ServiceUSBPlugIn() : QVAPlugIn(patchClass()), driver_(currentGpiDriver()) {}

ServiceUSBPlugIn::~ServiceUSBPlugIn() {
  cleanupServiceUSB();
}

void ServiceUSBPlugIn::enableExecution(ExecutionContext&) {
  m_dev_id = kNoGpiDevice;
  m_error = driver_->registerNotification(kDeviceType);
  if (m_error != GpiStatus::kOK) {
    return;
  }
  m_dev_id = driver_->nextDeviceIdentifier(kNoGpiDevice);
  if (m_dev_id != kNoGpiDevice) {
    m_value = driver_->inputValue(m_dev_id);
  }
}

bool ServiceUSBPlugIn::execute(ExecutionContext&, double, const Arguments&) {
  for (unsigned output = 0; output < kOutputCount; ++output) {
    const std::string key = outputKey(output);
    if (didValueForInputKeyChange(key)) {
      setClearOutput(output, inputBoolean(key));
    }
  }
  return true;
}

void ServiceUSBPlugIn::disableExecution(ExecutionContext&) {
  cleanupServiceUSB();
}

void ServiceUSBPlugIn::setClearOutput(unsigned output, bool doSet) {
  const auto bit = static_cast<std::uint16_t>(1u << output);
  m_value = doSet ? static_cast<std::uint16_t>(m_value | bit) : static_cast<std::uint16_t>(m_value & ~bit);
  // Without a box the write still goes out, so that its status shows why nothing switched.
  m_error = driver_->setOutputValue(m_value, m_dev_id, kWriteTimeout);
  updateStatusOutput();
}

void ServiceUSBPlugIn::updateStatusOutput() {
  setValueForOutputKey(Value(static_cast<std::uint32_t>(m_value)), "outputCurrentValue");
  // Index ports carry unsigned values: a negative code shows as its two's complement.
  setValueForOutputKey(Value(static_cast<std::uint32_t>(m_error)), "outputStatusCode");
  setValueForOutputKey(Value(statusMessage(m_error)), "outputStatusMessage");
}

void ServiceUSBPlugIn::cleanupServiceUSB() {
  if (m_dev_id != kNoGpiDevice) {
    driver_->releaseDevice(m_dev_id);
    m_dev_id = kNoGpiDevice;
  }
}

}  // namespace qva
