#include "host/PatchHost.h"

namespace qva {

PatchHost::PatchHost(std::unique_ptr<Patch> patch, ExecutionContext& context)
    : patch_(std::move(patch)), context_(context) {}

PatchHost::~PatchHost() {
  stop();
}

bool PatchHost::start() {
  if (!started_) {
    started_ = patch_->startExecution(context_);
  }
  return started_;
}

void PatchHost::enable() {
  if (started_ && !enabled_) {
    patch_->enableExecution(context_);
    enabled_ = true;
  }
}

void PatchHost::disable() {
  if (enabled_) {
    patch_->disableExecution(context_);
    enabled_ = false;
  }
}

void PatchHost::stop() {
  disable();
  if (started_) {
    patch_->stopExecution(context_);
    started_ = false;
  }
}

PatchHost::FrameOutcome PatchHost::runFrame(double time, const Arguments& arguments, bool force) {
  FrameOutcome outcome;
  patch_->updateInputChangeFlags();
  const PatchClass& patchClass = patch_->patchClass();
  bool due = true;
  if (patchClass.timeMode == TimeMode::Idle) {
    const double next = patch_->executionTimeForContext(context_, time, arguments);
    outcome.executionTime = next;
    due = next <= time || patch_->anyInputChanged();
  } else if (patchClass.timeMode == TimeMode::None && patchClass.executionMode == ExecutionMode::Processor) {
    // Every input counts as changed at the first execution, so a processor without inputs runs once too.
    due = patch_->anyInputChanged() || !executedOnce_;
  }
  if (due || force) {
    outcome.executed = true;
    outcome.result = patch_->execute(context_, time, arguments);
    patch_->finishExecution();
    executedOnce_ = true;
  }
  return outcome;
}

}  // namespace qva
