#pragma once

#include <optional>
#include <string>

namespace qva {

// Seconds as stopwatch text: format 1 "hh:mm:ss", 2 "mm:ss", 3 "ss". The leading field is not reduced
// (62:05 for 3,725 s in format 2) and every field shows at least two digits.
class QVAStopWatchFormatter {
 public:
  int format() const { return format_; }
  // Accepts 1, 2 or 3; any other value is logged and the format kept.
  void setFormat(int format);
  // The text for x seconds, truncated toward zero; none while no valid format is set.
  std::optional<std::string> formatTime(double seconds) const;

 private:
  std::string description() const;

  int format_ = 0;
};

}  // namespace qva
