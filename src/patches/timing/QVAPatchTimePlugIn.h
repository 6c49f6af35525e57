#pragma once

#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Patch Time": the time since the patch's first execution. Only creation resets the clock, not a
// restart of rendering, so embedded compositions keep counting.
class QVAPatchTimePlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  QVAPatchTimePlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

 private:
  double startTime_ = 0;
  bool firstExecution_ = true;
};

}  // namespace qva
