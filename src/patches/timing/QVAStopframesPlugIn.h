#pragma once

#include <vector>

#include "framework/QVAPlugIn.h"
#include "patches/timing/QVAStopframe.h"

namespace qva {

// "QVA Stopframes": a local time that follows the host's time but pauses at each stop frame until the
// trigger input is true; publishes its stop frames and the composition duration to the playout host.
class QVAStopframesPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();
  // The user-information entries read by the playout host.
  static constexpr const char* kCompositionDurationInfoKey = "com.velmora.QVAStopframes.compositionDuration";
  static constexpr const char* kStopframesInfoKey = "com.velmora.QVAStopframes.stopframes";

  QVAStopframesPlugIn();

  double compositionDuration() const { return compositionDuration_; }
  void setCompositionDuration(double duration) { compositionDuration_ = duration; }
  const std::vector<QVAStopframe>& stopframes() const { return stopframes_; }
  // Takes the list as given (in its order) and has the next execution search the next stop frame again.
  void setStopframes(std::vector<QVAStopframe> stopframes);
  bool enableStopframesInQVAApps() const { return enableStopframesInQVAApps_; }
  void setEnableStopframesInQVAApps(bool enable) { enableStopframesInQVAApps_ = enable; }

  PropertyList serializedValueForKey(const std::string& key) const override;
  void setSerializedValueForKey(const PropertyList& value, const std::string& key) override;

  bool startExecution(ExecutionContext& context) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

  // The first stop frame in list order later than t; the largest float when there is none or when the
  // one found lies before 0.
  double nextStopframeAfterTime(double time) const;

 private:
  PropertyList stopframeDictionaries() const;

  double compositionDuration_ = 30.0;
  std::vector<QVAStopframe> stopframes_;
  Value stopframesStructure_;
  bool enableStopframesInQVAApps_ = true;

  bool stopframesChanged_ = false;
  bool waiting_ = false;
  bool trigger_ = false;
  double waitTime_ = 0;
  double timeOffset_ = 0;
  double currentStopFrame_ = 0;
  double startTime_ = 0;
  bool newStartTime_ = false;
};

}  // namespace qva
