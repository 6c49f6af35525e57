#pragma once

#include <memory>
#include <optional>

#include "framework/ExecutionContext.h"
#include "framework/Patch.h"

namespace qva {

// One patch as a host runs it: start and enable before rendering, the execution rules of its execution
// and time modes per frame, disable and stop at the end.
class PatchHost {
 public:
  struct FrameOutcome {
    bool executed = false;
    std::optional<bool> result;
    // What the patch answered when asked for its next execution time (time mode 1).
    std::optional<double> executionTime;
  };

  PatchHost(std::unique_ptr<Patch> patch, ExecutionContext& context);
  ~PatchHost();
  PatchHost(const PatchHost&) = delete;
  PatchHost& operator=(const PatchHost&) = delete;

  Patch& patch() { return *patch_; }
  const Patch& patch() const { return *patch_; }

  // Starts rendering; answers what startExecution returned (false leaves the patch stopped).
  bool start();
  void enable();
  void disable();
  // Disables (when enabled) and stops (when started).
  void stop();
  bool started() const { return started_; }
  bool enabled() const { return enabled_; }

  // One frame at composition time: executes the patch when its modes say so (or always with force).
  // Starting and enabling are the caller's, so that a script can call them in any order.
  FrameOutcome runFrame(double time, const Arguments& arguments, bool force = false);

 private:
  std::unique_ptr<Patch> patch_;
  ExecutionContext& context_;
  bool started_ = false;
  bool enabled_ = false;
  bool executedOnce_ = false;
};

}  // namespace qva
