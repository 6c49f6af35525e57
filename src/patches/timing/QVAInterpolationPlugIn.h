#pragma once

#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Interpolation": an endless cycle of hold at value 1, ease to value 2, hold at value 2, ease back,
// each with its own duration and easing function.
class QVAInterpolationPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();
  static const std::vector<std::string>& interpolationFunctions();
  static unsigned interpolationFunctionsMaximumIndex() { return 12; }

  QVAInterpolationPlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

  void pollInputPorts();
  // Sets mPhase for the time and answers the eased fraction of that phase.
  double normalizedTimeForTime(double time);
  double outputValueForTime(double time);
  double interpolatedValueAtTime(double fraction, int function) const;
  int phase() const { return mPhase; }

 private:
  double invalidPhase(const char* operation) const;

  int mPhase = 0;
  double mValue1 = 0;
  double mValue2 = 0;
  double mHoldDuration1 = 0;
  double mHoldDuration2 = 0;
  double mInterpolationDuration1 = 0;
  double mInterpolationDuration2 = 0;
  int mInterpolation1 = 0;
  int mInterpolation2 = 0;
};

}  // namespace qva
