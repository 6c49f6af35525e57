#pragma once

#include <memory>
#include <string>
#include <vector>

#include "foundation/dispatch/TaskQueue.h"
#include "framework/ExecutionContext.h"
#include "framework/Patch.h"
#include "framework/ProcessLog.h"
#include "host/PatchHost.h"

namespace qva {

// Drives one patch the way a host does (through PatchHost), executing it at every frame, and keeps the
// process log lines written meanwhile.
class PatchDriver {
 public:
  explicit PatchDriver(std::unique_ptr<Patch> patch);
  ~PatchDriver();

  Patch& patch() { return host_.patch(); }
  ExecutionContext& context() { return context_; }
  // The host thread's queue, where background work delivers; pump it to take deliveries.
  TaskQueue& queue() { return queue_; }

  void setSetting(const std::string& key, const PropertyList& value) {
    host_.patch().setSerializedValueForKey(value, key);
  }
  void set(const std::string& key, const Value& value);
  bool start();
  void stop();
  // One frame at host time t, executed whatever the patch's modes say; answers what execute answered.
  bool frame(double time, const Arguments& arguments = Arguments());
  // frame() whose answer the caller does not need, answering the driver to read outputs from.
  PatchDriver& afterFrame(double time, const Arguments& arguments = Arguments()) {
    frame(time, arguments);
    return *this;
  }
  // What an idle-mode patch answered before the last frame.
  double lastExecutionTime() const { return lastExecutionTime_; }

  const Value& output(const std::string& key) const;
  double number(const std::string& key) const { return output(key).numberValue(); }
  std::string string(const std::string& key) const { return output(key).stringValue(); }
  bool boolean(const std::string& key) const { return output(key).booleanValue(); }

  // Lines written to the process log while the driver lives.
  const std::vector<std::string>& processLog() const { return *processLog_; }

 private:
  TaskQueue queue_;
  ExecutionContext context_;
  PatchHost host_;
  double lastExecutionTime_ = 0;
  std::shared_ptr<std::vector<std::string>> processLog_;
  ProcessLog::Sink previousSink_;
};

template <typename PlugIn>
PatchDriver driverFor() {
  return PatchDriver(std::make_unique<PlugIn>());
}

// The keys of a patch's input or output ports, in order.
inline std::vector<std::string> portKeys(const auto& ports) {
  std::vector<std::string> keys;
  for (const auto& port : ports) {
    keys.push_back(port.description.key);
  }
  return keys;
}

}  // namespace qva
