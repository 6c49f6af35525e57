#include "support/PatchDriver.h"

namespace qva {

PatchDriver::PatchDriver(std::unique_ptr<Patch> patch)
    : context_(queue_),
      host_(std::move(patch), context_),
      processLog_(std::make_shared<std::vector<std::string>>()) {
  previousSink_ = ProcessLog::setSink([log = processLog_](const std::string& line) { log->push_back(line); });
}

PatchDriver::~PatchDriver() {
  ProcessLog::setSink(previousSink_);
}

void PatchDriver::set(const std::string& key, const Value& value) {
  host_.patch().setInputValue(key, value);
}

bool PatchDriver::start() {
  const bool started = host_.start();
  host_.enable();
  return started;
}

void PatchDriver::stop() {
  host_.stop();
}

bool PatchDriver::frame(double time, const Arguments& arguments) {
  if (!host_.started()) {
    start();
  }
  const PatchHost::FrameOutcome outcome = host_.runFrame(time, arguments, true);
  if (outcome.executionTime) {
    lastExecutionTime_ = *outcome.executionTime;
  }
  return outcome.result.value_or(false);
}

const Value& PatchDriver::output(const std::string& key) const {
  static const Value none;
  const Patch::OutputPort* port = host_.patch().findOutputPort(key);
  return port != nullptr ? port->value : none;
}

}  // namespace qva
