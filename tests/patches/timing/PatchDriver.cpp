#include "PatchDriver.h"

namespace qva {

PatchDriver::PatchDriver(std::unique_ptr<Patch> patch)
    : context_(queue_), patch_(std::move(patch)), processLog_(std::make_shared<std::vector<std::string>>()) {
  previousSink_ = ProcessLog::setSink([log = processLog_](const std::string& line) { log->push_back(line); });
}

PatchDriver::~PatchDriver() {
  ProcessLog::setSink(previousSink_);
}

void PatchDriver::set(const std::string& key, const Value& value) {
  patch_->setInputValue(key, value);
}

bool PatchDriver::start() {
  const bool started = patch_->startExecution(context_);
  patch_->enableExecution(context_);
  return started;
}

void PatchDriver::stop() {
  patch_->disableExecution(context_);
  patch_->stopExecution(context_);
}

bool PatchDriver::frame(double time, const Arguments& arguments) {
  patch_->updateInputChangeFlags();
  if (patch_->patchClass().timeMode == TimeMode::Idle) {
    lastExecutionTime_ = patch_->executionTimeForContext(context_, time, arguments);
  }
  const bool result = patch_->execute(context_, time, arguments);
  patch_->finishExecution();
  return result;
}

const Value& PatchDriver::output(const std::string& key) const {
  static const Value none;
  const Patch::OutputPort* port = patch_->findOutputPort(key);
  return port != nullptr ? port->value : none;
}

}  // namespace qva
