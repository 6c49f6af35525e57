#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "foundation/gpi/GpiDriver.h"
#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA GPI (Service USB)": switches the eight outputs of a GPI box from Boolean inputs and shows the
// box's value and the driver's last status.
class ServiceUSBPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();
  // The text shown for a driver status code.
  static std::string statusMessage(std::int32_t code);

  ServiceUSBPlugIn();
  ~ServiceUSBPlugIn() override;

  void enableExecution(ExecutionContext& context) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
  void disableExecution(ExecutionContext& context) override;

  void setClearOutput(unsigned output, bool doSet);
  void updateStatusOutput();
  void cleanupServiceUSB();

 private:
  // Taken when the patch is created, so a patch keeps the box its host chose for it.
  std::shared_ptr<GpiDriver> driver_;
  GpiDeviceId m_dev_id = kNoGpiDevice;
  std::int32_t m_error = GpiStatus::kOK;
  std::uint16_t m_value = 0;
};

}  // namespace qva
