#include "patches/timing/QVASmoothPlugIn.h"

#include <array>
#include <limits>

#include "framework/ProcessLog.h"
#include "framework/StringFormat.h"
#include "patches/timing/QVAInterpolation.h"
#include "patches/timing/QVAInterpolationPlugIn.h"

namespace qva {

namespace {

constexpr const char* kValue = "inputValue";
constexpr const char* kIncreasingDuration = "inputIncreasingDuration";
constexpr const char* kIncreasingInterpolation = "inputIncreasingInterpolation";
constexpr const char* kDecreasingDuration = "inputDecreasingDuration";
constexpr const char* kDecreasingInterpolation = "inputDecreasingInterpolation";

// Menu index to easing index. "Sinusoidal Out" (11) has always selected the In-Out curve; saved
// compositions rely on it.
constexpr std::array<unsigned, 13> kEasingForMenuIndex = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 12};

// Asks the host to run only when an input changes.
constexpr double kOnInputChangeOnly = std::numeric_limits<float>::max();

// How long after a transition's end the patch keeps running, so that the last frame settles on the target.
constexpr double kSettleTime = 0.5;

PortDescription durationInput(const char* key, const char* name) {
  return PortDescription::port(key, PortType::Number, name, Value(1.0)).withMinimum(0);
}

PortDescription easingInput(const char* key, const char* name) {
  const std::vector<std::string>& menu = QVAInterpolationPlugIn::interpolationFunctions();
  // The separators take no index.
  const double maximumIndex = static_cast<double>(menu.size()) - 5;
  return PortDescription::port(key, PortType::Index, name, Value(std::uint32_t{0}))
      .withMaximum(maximumIndex)
      .withMenu(menu);
}

}  // namespace

const PatchClass& QVASmoothPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVASmoothPlugIn";
    c.name = "QVA Smooth";
    c.description =
        "Same as the stock Smooth patch, but behaves correctly when the time is reset to 0 during playout in "
        "QVA applications.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::Idle;
    c.inputs = {
        PortDescription::port(kValue, PortType::Number, "Value", Value(0.0)),
        durationInput(kIncreasingDuration, "Increasing Duration"),
        easingInput(kIncreasingInterpolation, "Increasing Interpolation"),
        durationInput(kDecreasingDuration, "Decreasing Duration"),
        easingInput(kDecreasingInterpolation, "Decreasing Interpolation"),
    };
    c.outputs = {PortDescription::port("outputSmoothedValue", PortType::Number, "Smoothed Value")};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVASmoothPlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVASmoothPlugIn::QVASmoothPlugIn() : QVAPlugIn(patchClass()) {}

bool QVASmoothPlugIn::startExecution(ExecutionContext&) {
  firstExecute_ = true;
  return true;
}

void QVASmoothPlugIn::enableExecution(ExecutionContext&) {
  firstExecute_ = true;
}

unsigned QVASmoothPlugIn::currentInterpolationFunction() const {
  const std::uint32_t index = inputIndex(isIncreasing_ ? kIncreasingInterpolation : kDecreasingInterpolation);
  if (index < kEasingForMenuIndex.size()) {
    return kEasingForMenuIndex[index];
  }
  ProcessLog::write(formatString("%s Invalid interpolation function index: %i",
                                 "-[QVASmoothPlugIn currentInterpolationFunction]", static_cast<int>(index)));
  return 0;
}

double QVASmoothPlugIn::currentDuration() const {
  return inputNumber(isIncreasing_ ? kIncreasingDuration : kDecreasingDuration);
}

double QVASmoothPlugIn::executionTimeForContext(ExecutionContext&, double time, const Arguments&) {
  if (time <= smoothingEndTime_ + kSettleTime) {
    return time;
  }
  for (const char* key : {kIncreasingDuration, kDecreasingDuration, kValue, kIncreasingInterpolation,
                          kDecreasingInterpolation}) {
    if (didValueForInputKeyChange(key)) {
      return time;
    }
  }
  return kOnInputChangeOnly;
}

bool QVASmoothPlugIn::execute(ExecutionContext&, double time, const Arguments&) {
  if (time == 0 || firstExecute_) {
    firstExecute_ = false;
    const double value = inputNumber(kValue);
    currentValue_ = value;
    oldInputValue_ = value;
    updatedInputValue_ = value;
    smoothingEndTime_ = 0;
    setValueForOutputKey(value, "outputSmoothedValue");
    return true;
  }

  if (didValueForInputKeyChange(kValue)) {
    // A new transition starts wherever the output is now, also in mid-transition.
    oldInputValue_ = currentValue_;
    updatedInputValue_ = inputNumber(kValue);
    isIncreasing_ = updatedInputValue_ > oldInputValue_;
    smoothingEndTime_ = time + currentDuration();
  } else if (didValueForInputKeyChange(kIncreasingDuration) ||
             didValueForInputKeyChange(kDecreasingDuration)) {
    smoothingEndTime_ = time + currentDuration();
  }

  const double duration = currentDuration();
  double fraction = 1;
  if (duration > 0) {
    fraction = 1 - (smoothingEndTime_ - time) / duration;
    if (fraction < 0) {
      fraction = 0;
    }
  }

  double eased = 0;
  double value = updatedInputValue_;
  if (qvaInterpolate(currentInterpolationFunction(), fraction, &eased) == 0) {
    value = (updatedInputValue_ - oldInputValue_) * eased + oldInputValue_;
  }
  currentValue_ = value;
  setValueForOutputKey(value, "outputSmoothedValue");
  return true;
}

}  // namespace qva
