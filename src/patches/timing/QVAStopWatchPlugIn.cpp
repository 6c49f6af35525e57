#include "patches/timing/QVAStopWatchPlugIn.h"

#include <cstdlib>
#include <string_view>
#include <vector>

namespace qva {

namespace {

constexpr const char* kPlayPause = "inputPlayPause";
constexpr const char* kReset = "inputReset";
constexpr const char* kCountDirection = "inputCountDirection";
constexpr const char* kDuration = "inputDuration";
constexpr const char* kFormat = "inputFormat";
constexpr const char* kElapsed = "outputElapsed";

std::vector<std::string> splitAtColons(const std::string& text) {
  std::vector<std::string> parts;
  std::string::size_type begin = 0;
  while (true) {
    const auto colon = text.find(':', begin);
    parts.push_back(text.substr(begin, colon - begin));
    if (colon == std::string::npos) {
      return parts;
    }
    begin = colon + 1;
  }
}

// Characters, not bytes: a two-character field may hold multi-byte UTF-8.
std::size_t characterCount(std::string_view text) {
  std::size_t count = 0;
  for (const char byte : text) {
    if ((static_cast<unsigned char>(byte) & 0xC0) != 0x80) {
      ++count;
    }
  }
  return count;
}

// The field's leading integer; text without one reads as 0.
double leadingInteger(const std::string& field) {
  return static_cast<double>(std::strtoll(field.c_str(), nullptr, 10));
}

}  // namespace

const PatchClass& QVAStopWatchPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAStopWatchPlugIn";
    c.name = "QVA Stopwatch";
    c.description =
        "QVA StopWatch has the following features: \nIt is possible to assign a duration time and the "
        "direction of the counter. \nWhen stopwatch has reached the end of duration time a signal will be "
        "sent.\nPlay / Pause is a toggle instead of two seperated inputs";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::TimeBase;
    c.inputs = {
        PortDescription::port(kPlayPause, PortType::Boolean, "Play Pause"),
        PortDescription::port(kReset, PortType::Boolean, "Reset Signal"),
        PortDescription::port(kCountDirection, PortType::Index, "Count Direction", Value(std::uint32_t{0}))
            .withMaximum(1)
            .withMenu({"Up", "Down"}),
        PortDescription::port(kDuration, PortType::String, "Stopwatch Duration"),
        // No title: the editor shows the key.
        PortDescription::port(kFormat, PortType::String),
    };
    c.outputs = {
        PortDescription::port("outputTimeString", PortType::String, "Time as String"),
        PortDescription::port(kElapsed, PortType::Boolean, "Elapsed"),
    };
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVAStopWatchPlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVAStopWatchPlugIn::QVAStopWatchPlugIn() : QVAPlugIn(patchClass()) {
  formatter_.setFormat(2);
}

bool QVAStopWatchPlugIn::startExecution(ExecutionContext&) {
  firstRun_ = true;
  return true;
}

void QVAStopWatchPlugIn::enableExecution(ExecutionContext&) {
  firstRun_ = true;
  setValueForOutputKey(false, kElapsed);
}

double QVAStopWatchPlugIn::durationForString(const std::string& text) {
  const std::vector<std::string> parts = splitAtColons(text);
  switch (parts.size()) {
    case 1:
      return leadingInteger(parts[0]);
    case 2:
      if (characterCount(parts[1]) != 2) {
        return -1;
      }
      return leadingInteger(parts[0]) * 60 + leadingInteger(parts[1]);
    case 3:
      if (characterCount(parts[1]) != 2 || characterCount(parts[2]) != 2) {
        return -1;
      }
      return leadingInteger(parts[0]) * 3600 + leadingInteger(parts[1]) * 60 + leadingInteger(parts[2]);
    default:
      return -1;
  }
}

void QVAStopWatchPlugIn::updateFormat() {
  const std::string format = inputString(kFormat);
  if (format == "ss" || format == "SS") {
    formatter_.setFormat(3);
  } else if (format == "mm:ss" || format == "MM:SS") {
    formatter_.setFormat(2);
  } else if (format == "hh:mm:ss" || format == "HH:MM:SS") {
    formatter_.setFormat(1);
  }
}

void QVAStopWatchPlugIn::reset(double time) {
  setValueForOutputKey(false, kElapsed);
  startExecuteTime_ = time;
  const double duration = durationForString(inputString(kDuration));
  if (inputIndex(kCountDirection) != 0) {
    startStopwatchTime_ = duration;
    currentStopwatchTime_ = duration;
    endStopwatchTime_ = 0;
  } else {
    startStopwatchTime_ = 0;
    currentStopwatchTime_ = 0;
    endStopwatchTime_ = duration;
  }
}

void QVAStopWatchPlugIn::run(double time) {
  const double elapsed = time - startExecuteTime_;
  bool ended = false;
  if (inputIndex(kCountDirection) != 0) {
    currentStopwatchTime_ = startStopwatchTime_ - elapsed;
    ended = endStopwatchTime_ >= currentStopwatchTime_;
  } else {
    currentStopwatchTime_ = startStopwatchTime_ + elapsed;
    ended = currentStopwatchTime_ >= endStopwatchTime_;
  }
  if (ended) {
    currentStopwatchTime_ = endStopwatchTime_;
    setValueForOutputKey(true, kElapsed);
  }
}

bool QVAStopWatchPlugIn::execute(ExecutionContext&, double time, const Arguments&) {
  if (didValueForInputKeyChange(kFormat)) {
    updateFormat();
  }
  const bool playing = inputBoolean(kPlayPause);
  // A reset while the stopwatch runs is ignored, except on the first execution of a run.
  if (didValueForInputKeyChange(kReset) && (firstRun_ || (inputBoolean(kReset) && !playing))) {
    reset(time);
  }
  if (didValueForInputKeyChange(kPlayPause) && playing) {
    startExecuteTime_ = time;
    startStopwatchTime_ = currentStopwatchTime_;
  }
  if (playing) {
    run(time);
  }
  setValueForOutputKey(formatter_.formatTime(currentStopwatchTime_).value_or(""), "outputTimeString");
  firstRun_ = false;
  return true;
}

}  // namespace qva
