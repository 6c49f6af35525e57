#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "framework/ExecutionContext.h"
#include "framework/PatchClass.h"
#include "framework/PropertyList.h"
#include "framework/Value.h"

namespace qva {

// The per-frame arguments dictionary of a playout host; null when the host passes none.
using Arguments = PropertyList;

// The host-facing base of every patch: the plug-in contract (lifecycle operations a host calls in
// order), the ports with their change detection, and the default storage of internal settings.
class Patch {
 public:
  struct InputPort {
    PortDescription description;
    Value value;
    Value valueAtLastExecution;
    bool executedSinceAdded = false;
    bool changed = true;
  };
  struct OutputPort {
    PortDescription description;
    Value value;
  };

  explicit Patch(const PatchClass& patchClass);
  virtual ~Patch();
  Patch(const Patch&) = delete;
  Patch& operator=(const Patch&) = delete;

  const PatchClass& patchClass() const { return patchClass_; }

  // The contract, in the order a host calls it.
  virtual bool startExecution(ExecutionContext& context);
  virtual void enableExecution(ExecutionContext& context);
  // The composition time at which the patch next wants to run (time modes 1, and the XML patch).
  virtual double executionTimeForContext(ExecutionContext& context, double time, const Arguments& arguments);
  virtual bool execute(ExecutionContext& context, double time, const Arguments& arguments) = 0;
  virtual void disableExecution(ExecutionContext& context);
  virtual void stopExecution(ExecutionContext& context);
  // The host's default storage of internal settings: the value stored under the key, or null.
  virtual PropertyList serializedValueForKey(const std::string& key) const;
  virtual void setSerializedValueForKey(const PropertyList& value, const std::string& key);

  // Host side of the ports. Inputs and outputs are in port order: the class's sortedPropertyPortKeys,
  // the other static ports in declaration order, then ports added at run time in the order added.
  const std::vector<InputPort>& inputPorts() const { return inputs_; }
  const std::vector<OutputPort>& outputPorts() const { return outputs_; }
  const InputPort* findInputPort(const std::string& key) const;
  const OutputPort* findOutputPort(const std::string& key) const;
  // Sets an input, converted to the port's type; false when there is no such input.
  bool setInputValue(const std::string& key, const Value& value);
  // Marks each input changed when its value differs from the one at the previous execution (every input
  // counts as changed before its first execution). The host calls it before consulting the patch.
  void updateInputChangeFlags();
  bool anyInputChanged() const;
  // Records the input values of the execution that just ran and clears the change flags.
  void finishExecution();

  // Where logMessage lines go (the host log), and how the patch asks the host to render again.
  void setHostLog(ExecutionContext::LogSink sink) { hostLog_ = std::move(sink); }
  void setRenderRequestHandler(std::function<void()> handler) { renderRequest_ = std::move(handler); }

 protected:
  const Value& valueForInputKey(const std::string& key) const;
  bool didValueForInputKeyChange(const std::string& key) const;
  void setValueForOutputKey(const Value& value, const std::string& key);
  const Value& outputValue(const std::string& key) const;

  // Typed readers of inputs with the host's conversions (see Value).
  bool inputBoolean(const std::string& key) const { return valueForInputKey(key).booleanValue(); }
  std::uint32_t inputIndex(const std::string& key) const { return valueForInputKey(key).indexValue(); }
  double inputNumber(const std::string& key) const { return valueForInputKey(key).numberValue(); }
  std::string inputString(const std::string& key) const { return valueForInputKey(key).stringValue(); }

  // Ports at run time. Adding a key that exists replaces that port; removing an absent key is harmless.
  void addInputPort(PortType type, const std::string& key, const PortAttributes& attributes);
  void addOutputPort(PortType type, const std::string& key, const PortAttributes& attributes);
  void removeInputPort(const std::string& key);
  void removeOutputPort(const std::string& key);

  // A line in the host's log.
  void logMessage(const std::string& line) const;
  // Asks the host to render again although no input changed.
  void requestRendering() const;

 private:
  InputPort* mutableInput(const std::string& key);
  // A patch that names a port it does not have has the key misspelt: debug builds stop there with the
  // key on standard error; release builds read no value and drop the write.
  void checkPortKey(const void* port, const std::string& key) const;

  const PatchClass& patchClass_;
  std::vector<InputPort> inputs_;
  std::vector<OutputPort> outputs_;
  std::map<std::string, PropertyList> storedSettings_;
  ExecutionContext::LogSink hostLog_;
  std::function<void()> renderRequest_;
};

}  // namespace qva
