#pragma once

#include "framework/QVAPlugIn.h"
#include "patches/timing/QVAStopWatchFormatter.h"

namespace qva {

// "QVA Stopwatch": counts up from 0 to a duration or down from it to 0, with a play/pause toggle and a
// reset that only acts while paused, and shows the count as text.
class QVAStopWatchPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  QVAStopWatchPlugIn();

  bool startExecution(ExecutionContext& context) override;
  void enableExecution(ExecutionContext& context) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

  // Seconds of a duration text "h:mm:ss", "m:ss" or "s"; -1 for any other shape.
  static double durationForString(const std::string& text);

 private:
  void updateFormat();
  void reset(double time);
  void run(double time);

  bool firstRun_ = false;
  double startExecuteTime_ = 0;
  double startStopwatchTime_ = 0;
  double endStopwatchTime_ = 0;
  double currentStopwatchTime_ = 0;
  QVAStopWatchFormatter formatter_;
};

}  // namespace qva
