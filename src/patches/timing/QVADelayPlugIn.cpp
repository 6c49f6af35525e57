#include "patches/timing/QVADelayPlugIn.h"

#include <array>

#include "foundation/providers/QVAOutputImageProviderFromInputImage.h"
#include "patches/timing/QVAInterpolation.h"

namespace qva {

namespace {

// The settings' type indices, in menu order.
constexpr std::array<PortType, 7> kTypes = {PortType::Boolean,  PortType::Index,  PortType::Number,
                                            PortType::Color,    PortType::String, PortType::Image,
                                            PortType::Structure};
// "Nothing due": the largest single-precision number, as the host reads it.
constexpr double kNever = 3.4028234663852886e38;
// The easing of the image fades: "Sinusoidal In-Out".
constexpr unsigned kFadeEasing = 12;

PortAttributes titled(std::string_view title) {
  return PortAttributes{std::string(title), {}, {}, {}, {}, {}};
}

}  // namespace

const PatchClass& QVADelayPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVADelayPlugIn";
    c.name = "QVA Delay";
    c.description = "Passes the given input value to the output after a delay.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::Idle;
    c.inputs = {PortDescription::port("inputDelay", PortType::Number, "Delay", Value(1.0)).withMinimum(0)};
    c.plugInKeys = QVAPlugIn::plugInKeys({"typeIndex", "representationIndex"});
    c.create = [] { return std::make_unique<QVADelayPlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVADelayPlugIn::QVADelayPlugIn() : QVAPlugIn(patchClass()) {
  addInputPort(PortType::Boolean, "inputValue", titled("Boolean"));
  addOutputPort(PortType::Boolean, "outputValue", titled("Value"));
  // The type is unset until now, so this builds the Boolean ports again.
  adjustPorts();
  representationIndex_ = 0;
}

void QVADelayPlugIn::setTypeIndex(std::optional<std::uint32_t> typeIndex) {
  if (!typeIndex || *typeIndex == typeIndex_) {
    return;
  }
  typeIndex_ = *typeIndex;
  adjustPorts();
}

void QVADelayPlugIn::adjustPorts() {
  if (typeIndex_ >= kTypes.size()) {
    return;
  }
  const PortType type = kTypes[typeIndex_];
  if (portType_ == type) {
    return;
  }
  if (portType_ == PortType::Image) {
    removeOutputPort("outputAlpha");
  }
  portType_ = type;
  removeInputPort("inputValue");
  removeOutputPort("outputValue");
  addInputPort(type, "inputValue", titled(portTypeName(type)));
  addOutputPort(type, "outputValue", titled("Value"));
  if (type == PortType::Image) {
    PortAttributes alpha = titled("Alpha");
    alpha.defaultValue = Value(1.0);
    addOutputPort(PortType::Number, "outputAlpha", alpha);
  }
}

PropertyList QVADelayPlugIn::serializedValueForKey(const std::string& key) const {
  if (key == "typeIndex") {
    return typeIndex_;
  }
  if (key == "representationIndex") {
    return representationIndex_;
  }
  return QVAPlugIn::serializedValueForKey(key);
}

void QVADelayPlugIn::setSerializedValueForKey(const PropertyList& value, const std::string& key) {
  if (key == "typeIndex") {
    if (value.is_number()) {
      const long long index = propertyListInteger(value);
      setTypeIndex(index < 0 ? std::uint32_t{kTypes.size()} : static_cast<std::uint32_t>(index));
    }
  } else if (key == "representationIndex") {
    representationIndex_ = static_cast<std::uint32_t>(propertyListInteger(value));
  } else {
    QVAPlugIn::setSerializedValueForKey(value, key);
  }
}

bool QVADelayPlugIn::startExecution(ExecutionContext& /*context*/) {
  return true;
}

void QVADelayPlugIn::disableExecution(ExecutionContext& /*context*/) {
  // The pending flag and time stay: at the release time the output becomes no value.
  updatedValue = Value();
}

double QVADelayPlugIn::executionTimeForContext(ExecutionContext& /*context*/, double time,
                                               const Arguments& /*arguments*/) {
  if (didValueForInputKeyChange("inputDelay") || didValueForInputKeyChange("inputValue")) {
    return time;
  }
  if (portType_ == PortType::Image &&
      (time <= updatedValueTimestamp + 0.5 || time - updatedValueTimestamp <= delay + 0.5)) {
    // Animate the fades frame by frame, with half a second to spare.
    return time;
  }
  return hasUpdatedValue ? updatedValueTimestamp : kNever;
}

bool QVADelayPlugIn::execute(ExecutionContext& context, double time, const Arguments& /*arguments*/) {
  if (didValueForInputKeyChange("inputDelay")) {
    // A pending value keeps its arrival time and takes the new delay.
    const double newDelay = inputNumber("inputDelay");
    updatedValueTimestamp = updatedValueTimestamp - delay + newDelay;
    delay = newDelay;
  }
  if (didValueForInputKeyChange("inputValue")) {
    hasUpdatedValue = true;
    updatedValueTimestamp = delay + time;
    const Value& input = valueForInputKey("inputValue");
    if (portType_ == PortType::Image) {
      updatedValue = Value(QVAOutputImageProviderFromInputImage::outputImageProviderWithInputImage(
          input.imageValue(), context, representationIndex_ == 0));
    } else {
      updatedValue = input;
    }
  }
  if (portType_ == PortType::Image) {
    double alpha = 1;
    if (delay != 0) {
      if (hasUpdatedValue) {
        const double f = (updatedValueTimestamp - time) / delay;
        alpha = 0;
        if (f >= 0 && qvaInterpolate(kFadeEasing, f, &alpha) != 0) {
          alpha = 0;
        }
      } else {
        const double f = (time - updatedValueTimestamp) / delay;
        alpha = 1;
        if (f <= 1 && qvaInterpolate(kFadeEasing, f, &alpha) != 0) {
          alpha = 1;
        }
      }
    }
    setValueForOutputKey(Value(alpha), "outputAlpha");
  }
  if (hasUpdatedValue && time >= updatedValueTimestamp) {
    setValueForOutputKey(updatedValue, "outputValue");
    updatedValue = Value();
    hasUpdatedValue = false;
  }
  return true;
}

}  // namespace qva
