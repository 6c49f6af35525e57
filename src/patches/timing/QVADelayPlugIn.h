#pragma once

#include <optional>

#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Delay": passes a changed input value to the output after a set delay. The value's type is a
// setting and the value ports are rebuilt with it; for images an extra alpha output fades the old
// image out during the wait and the new one in after it. At most one value waits at a time.
class QVADelayPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  QVADelayPlugIn();

  std::uint32_t typeIndex() const { return typeIndex_; }
  // Ignored for none or the current index; otherwise rebuilds the ports.
  void setTypeIndex(std::optional<std::uint32_t> typeIndex);
  std::uint32_t representationIndex() const { return representationIndex_; }
  void setRepresentationIndex(std::uint32_t index) { representationIndex_ = index; }
  std::optional<PortType> portType() const { return portType_; }
  void adjustPorts();

  PropertyList serializedValueForKey(const std::string& key) const override;
  void setSerializedValueForKey(const PropertyList& value, const std::string& key) override;

  bool startExecution(ExecutionContext& context) override;
  void disableExecution(ExecutionContext& context) override;
  double executionTimeForContext(ExecutionContext& context, double time, const Arguments& arguments) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

 private:
  std::uint32_t typeIndex_ = 0;
  std::uint32_t representationIndex_ = 0;
  std::optional<PortType> portType_;
  Value updatedValue;
  bool hasUpdatedValue = false;
  double updatedValueTimestamp = 0;
  double delay = 0;
};

}  // namespace qva
