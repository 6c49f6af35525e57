#pragma once

#include <vector>

#include "framework/QVAPlugIn.h"
#include "patches/timing/QVAStepPoint.h"

namespace qva {

// "QVA Step Function": a piecewise-constant output over the time since the first execution after a
// start, given by the time/value pairs of its "stepPoints" setting.
class QVAStepFunctionPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  QVAStepFunctionPlugIn();

  const std::vector<QVAStepPoint>& stepPoints() const { return stepPoints_; }
  void setStepPoints(std::vector<QVAStepPoint> stepPoints) { stepPoints_ = std::move(stepPoints); }

  PropertyList serializedValueForKey(const std::string& key) const override;
  void setSerializedValueForKey(const PropertyList& value, const std::string& key) override;

  bool startExecution(ExecutionContext& context) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

  // The value of the last point at or before t in list order; 0 before the first point.
  double valueForTime(double time) const;

 private:
  std::vector<QVAStepPoint> stepPoints_;
  double startTime_ = 0;
  bool newStartTime_ = false;
};

}  // namespace qva
