#include "framework/Patch.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "framework/ProcessLog.h"

namespace qva {

namespace {

// The static ports of one direction in port order: those named by sortedPropertyPortKeys first.
std::vector<const PortDescription*> orderedPorts(const std::vector<PortDescription>& ports,
                                                 const std::optional<std::vector<std::string>>& sortedKeys) {
  std::vector<const PortDescription*> ordered;
  if (sortedKeys) {
    for (const std::string& key : *sortedKeys) {
      auto found =
          std::find_if(ports.begin(), ports.end(), [&](const auto& port) { return port.key == key; });
      if (found != ports.end()) {
        ordered.push_back(&*found);
      }
    }
  }
  for (const PortDescription& port : ports) {
    if (std::find(ordered.begin(), ordered.end(), &port) == ordered.end()) {
      ordered.push_back(&port);
    }
  }
  return ordered;
}

template <typename Port>
auto findPort(std::vector<Port>& ports, const std::string& key) {
  return std::find_if(ports.begin(), ports.end(),
                      [&](const Port& port) { return port.description.key == key; });
}

// An input's value before the host sets it: its default, or its type's initial value without one.
Value valueBeforeFirstSet(PortType type, const PortAttributes& attributes) {
  return attributes.defaultValue.isNone() ? Value::initialValue(type)
                                          : attributes.defaultValue.convertedTo(type);
}

const Value& noValue() {
  static const Value none;
  return none;
}

}  // namespace

Patch::Patch(const PatchClass& patchClass) : patchClass_(patchClass) {
  for (const PortDescription* port : orderedPorts(patchClass.inputs, patchClass.sortedPropertyPortKeys)) {
    inputs_.push_back({*port, valueBeforeFirstSet(port->type, port->attributes), Value(), false, true});
  }
  for (const PortDescription* port : orderedPorts(patchClass.outputs, patchClass.sortedPropertyPortKeys)) {
    outputs_.push_back({*port, Value::initialValue(port->type)});
  }
}

Patch::~Patch() = default;

bool Patch::startExecution(ExecutionContext&) {
  return true;
}

void Patch::enableExecution(ExecutionContext&) {}

double Patch::executionTimeForContext(ExecutionContext&, double time, const Arguments&) {
  return time;
}

void Patch::disableExecution(ExecutionContext&) {}

void Patch::stopExecution(ExecutionContext&) {}

PropertyList Patch::serializedValueForKey(const std::string& key) const {
  auto found = storedSettings_.find(key);
  return found != storedSettings_.end() ? found->second : PropertyList();
}

void Patch::setSerializedValueForKey(const PropertyList& value, const std::string& key) {
  storedSettings_[key] = value;
}

const Patch::InputPort* Patch::findInputPort(const std::string& key) const {
  auto found = std::find_if(inputs_.begin(), inputs_.end(),
                            [&](const InputPort& port) { return port.description.key == key; });
  return found != inputs_.end() ? &*found : nullptr;
}

const Patch::OutputPort* Patch::findOutputPort(const std::string& key) const {
  auto found = std::find_if(outputs_.begin(), outputs_.end(),
                            [&](const OutputPort& port) { return port.description.key == key; });
  return found != outputs_.end() ? &*found : nullptr;
}

Patch::InputPort* Patch::mutableInput(const std::string& key) {
  auto found = findPort(inputs_, key);
  return found != inputs_.end() ? &*found : nullptr;
}

bool Patch::setInputValue(const std::string& key, const Value& value) {
  InputPort* port = mutableInput(key);
  if (port == nullptr) {
    return false;
  }
  port->value = value.convertedTo(port->description.type);
  return true;
}

void Patch::updateInputChangeFlags() {
  for (InputPort& port : inputs_) {
    port.changed = !port.executedSinceAdded || !(port.value == port.valueAtLastExecution);
  }
}

bool Patch::anyInputChanged() const {
  return std::any_of(inputs_.begin(), inputs_.end(), [](const InputPort& port) { return port.changed; });
}

void Patch::finishExecution() {
  for (InputPort& port : inputs_) {
    port.valueAtLastExecution = port.value;
    port.executedSinceAdded = true;
    port.changed = false;
  }
}

void Patch::checkPortKey([[maybe_unused]] const void* port, [[maybe_unused]] const std::string& key) const {
#ifndef NDEBUG
  if (port == nullptr) {
    std::fprintf(stderr, "qva: %s reads or writes \"%s\", which is none of its ports\n",
                 patchClass_.className.c_str(), key.c_str());
    std::abort();
  }
#endif
}

const Value& Patch::valueForInputKey(const std::string& key) const {
  const InputPort* port = findInputPort(key);
  checkPortKey(port, key);
  return port != nullptr ? port->value : noValue();
}

bool Patch::didValueForInputKeyChange(const std::string& key) const {
  const InputPort* port = findInputPort(key);
  checkPortKey(port, key);
  return port != nullptr && port->changed;
}

void Patch::setValueForOutputKey(const Value& value, const std::string& key) {
  auto found = findPort(outputs_, key);
  checkPortKey(found != outputs_.end() ? &*found : nullptr, key);
  if (found != outputs_.end()) {
    found->value = value.convertedTo(found->description.type);
  }
}

const Value& Patch::outputValue(const std::string& key) const {
  const OutputPort* port = findOutputPort(key);
  checkPortKey(port, key);
  return port != nullptr ? port->value : noValue();
}

void Patch::addInputPort(PortType type, const std::string& key, const PortAttributes& attributes) {
  removeInputPort(key);
  inputs_.push_back({{key, type, attributes}, valueBeforeFirstSet(type, attributes), Value(), false, true});
}

void Patch::addOutputPort(PortType type, const std::string& key, const PortAttributes& attributes) {
  removeOutputPort(key);
  outputs_.push_back({{key, type, attributes}, Value::initialValue(type)});
}

void Patch::removeInputPort(const std::string& key) {
  auto found = findPort(inputs_, key);
  if (found != inputs_.end()) {
    inputs_.erase(found);
  }
}

void Patch::removeOutputPort(const std::string& key) {
  auto found = findPort(outputs_, key);
  if (found != outputs_.end()) {
    outputs_.erase(found);
  }
}

void Patch::logMessage(const std::string& line) const {
  if (hostLog_) {
    hostLog_(line);
  } else {
    ProcessLog::write(line);
  }
}

void Patch::requestRendering() const {
  if (renderRequest_) {
    renderRequest_();
  }
}

}  // namespace qva
