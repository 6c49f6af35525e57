#include "patches/timing/QVAInterpolationPlugIn.h"

#include <array>
#include <cmath>

#include "framework/ProcessLog.h"
#include "framework/StringFormat.h"
#include "patches/timing/QVAInterpolation.h"

namespace qva {

namespace {

// Beyond this many whole cycles the phase walk first drops whole cycles by a remainder, so that absurd
// times cannot stall a frame; up to it the walk subtracts phase by phase, which fixes the rounding.
constexpr double kMaxWalkedCycles = 1e7;

// Negative and NaN durations count as 0 so that the walk always ends.
double walkableDuration(double duration) {
  return duration > 0 ? duration : 0;
}

PortDescription easingInput(const char* key, const char* name) {
  return PortDescription::port(key, PortType::Index, name, Value(std::uint32_t{0}))
      .withMaximum(QVAInterpolationPlugIn::interpolationFunctionsMaximumIndex())
      .withMenu(QVAInterpolationPlugIn::interpolationFunctions());
}

PortDescription numberInput(const char* key, const char* name, double defaultValue) {
  return PortDescription::port(key, PortType::Number, name, Value(defaultValue));
}

}  // namespace

const PatchClass& QVAInterpolationPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAInterpolationPlugIn";
    c.name = "QVA Interpolation";
    c.description =
        "This patch is more flexible than the stock Interpolation patch. In addition to the two values to "
        "interpolate between, the hold duration, interpolation duration and interpolation function can be "
        "set for both interpolation directions independently.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::TimeBase;
    c.inputs = {
        numberInput("inputValue1", "Value 1", 0),
        numberInput("inputValue2", "Value 2", 1),
        numberInput("inputHoldDuration1", "Hold Duration 1", 5),
        numberInput("inputHoldDuration2", "Hold Duration 2", 3),
        numberInput("inputInterpolationDuration1", "Interpolation Duration 1", 0.5),
        numberInput("inputInterpolationDuration2", "Interpolation Duration 2", 0.5),
        easingInput("inputInterpolation1", "Interpolation 1"),
        easingInput("inputInterpolation2", "Interpolation 2"),
    };
    c.outputs = {PortDescription::port("outputValue", PortType::Number, "Result")};
    c.sortedPropertyPortKeys = std::vector<std::string>{"inputValue1",
                                                        "inputValue2",
                                                        "inputHoldDuration1",
                                                        "inputHoldDuration2",
                                                        "inputInterpolationDuration1",
                                                        "inputInterpolationDuration2",
                                                        "inputInterpolation1",
                                                        "inputInterpolation2",
                                                        "outputValue"};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVAInterpolationPlugIn>(); };
    return c;
  }();
  return patchClass;
}

const std::vector<std::string>& QVAInterpolationPlugIn::interpolationFunctions() {
  static const std::vector<std::string> items(qvaInterpolationMenuItems().begin(),
                                              qvaInterpolationMenuItems().end());
  return items;
}

QVAInterpolationPlugIn::QVAInterpolationPlugIn() : QVAPlugIn(patchClass()) {}

void QVAInterpolationPlugIn::pollInputPorts() {
  const auto pollNumber = [this](const char* key, double& field) {
    if (didValueForInputKeyChange(key)) {
      field = inputNumber(key);
    }
  };
  const auto pollIndex = [this](const char* key, int& field) {
    if (didValueForInputKeyChange(key)) {
      field = static_cast<int>(inputIndex(key));
    }
  };
  pollNumber("inputValue1", mValue1);
  pollNumber("inputValue2", mValue2);
  pollNumber("inputHoldDuration1", mHoldDuration1);
  pollNumber("inputHoldDuration2", mHoldDuration2);
  pollNumber("inputInterpolationDuration1", mInterpolationDuration1);
  pollNumber("inputInterpolationDuration2", mInterpolationDuration2);
  pollIndex("inputInterpolation1", mInterpolation1);
  pollIndex("inputInterpolation2", mInterpolation2);
}

double QVAInterpolationPlugIn::interpolatedValueAtTime(double fraction, int function) const {
  double eased = 0;
  if (function < 0 || qvaInterpolate(static_cast<unsigned>(function), fraction, &eased) != 0) {
    return 0;
  }
  return eased;
}

double QVAInterpolationPlugIn::invalidPhase(const char* operation) const {
  ProcessLog::write(formatString("[%s %s] invalid interpolation phase: %i", patchClass().className.c_str(),
                                 operation, mPhase));
  return 0;
}

double QVAInterpolationPlugIn::normalizedTimeForTime(double time) {
  mPhase = -1;
  if (mHoldDuration1 == 0 && mHoldDuration2 == 0 && mInterpolationDuration1 == 0 &&
      mInterpolationDuration2 == 0) {
    mPhase = 0;
    return 0;
  }
  const std::array<double, 4> durations = {
      walkableDuration(mHoldDuration1), walkableDuration(mInterpolationDuration1),
      walkableDuration(mHoldDuration2), walkableDuration(mInterpolationDuration2)};
  const double cycle = durations[0] + durations[1] + durations[2] + durations[3];
  // A time that is not a number, or a cycle the walk cannot pass, stays at the hold on value 1.
  if (!std::isfinite(time) || cycle == 0) {
    mPhase = 0;
    return 0;
  }
  double remaining = time;
  if (remaining / cycle > kMaxWalkedCycles) {
    remaining = std::fmod(remaining, cycle);
  }
  int phase = 0;
  while (true) {
    mPhase = phase;
    if (durations[static_cast<std::size_t>(phase)] > remaining) {
      break;
    }
    remaining -= durations[static_cast<std::size_t>(phase)];
    phase = (phase + 1) % 4;
  }
  switch (mPhase) {
    case 0:
      return remaining / mHoldDuration1;
    case 1:
      return mInterpolationDuration1 == 0
                 ? 0
                 : interpolatedValueAtTime(remaining / mInterpolationDuration1, mInterpolation1);
    case 2:
      return remaining / mHoldDuration2;
    case 3:
      return mInterpolationDuration2 == 0
                 ? 0
                 : interpolatedValueAtTime(remaining / mInterpolationDuration2, mInterpolation2);
    default:
      return invalidPhase("normalizedTimeForTime:");
  }
}

double QVAInterpolationPlugIn::outputValueForTime(double time) {
  const double fraction = normalizedTimeForTime(time);
  switch (mPhase) {
    case 0:
      return mValue1;
    case 1:
      return fraction * (mValue2 - mValue1) + mValue1;
    case 2:
      return mValue2;
    case 3:
      return fraction * (mValue1 - mValue2) + mValue2;
    default:
      return invalidPhase("outputValueForTime:");
  }
}

bool QVAInterpolationPlugIn::execute(ExecutionContext&, double time, const Arguments&) {
  pollInputPorts();
  setValueForOutputKey(outputValueForTime(time), "outputValue");
  return true;
}

}  // namespace qva
