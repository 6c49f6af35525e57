#pragma once

#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Smooth": follows its input with an eased transition on every change, separately timed and eased
// for rising and falling values; a frame at time 0 or the first after a start snaps to the input.
class QVASmoothPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  QVASmoothPlugIn();

  bool startExecution(ExecutionContext& context) override;
  void enableExecution(ExecutionContext& context) override;
  double executionTimeForContext(ExecutionContext& context, double time, const Arguments& arguments) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

  // The easing index of the current direction, mapped for qvaInterpolate (invalid indices give 0).
  unsigned currentInterpolationFunction() const;

 private:
  double currentDuration() const;

  double oldInputValue_ = 0;
  double updatedInputValue_ = 0;
  double currentValue_ = 0;
  double smoothingEndTime_ = 0;
  bool isIncreasing_ = false;
  bool firstExecute_ = false;
};

}  // namespace qva
