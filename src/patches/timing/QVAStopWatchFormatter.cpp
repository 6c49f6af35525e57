#include "patches/timing/QVAStopWatchFormatter.h"

#include <cmath>
#include <limits>

#include "framework/ProcessLog.h"
#include "framework/StringFormat.h"

namespace qva {

namespace {

// Whole seconds toward zero, held within the int range the "%02i" fields print; NaN reads as 0.
int wholeSeconds(double seconds) {
  if (std::isnan(seconds)) {
    return 0;
  }
  constexpr double lowest = std::numeric_limits<int>::min();
  constexpr double highest = std::numeric_limits<int>::max();
  return static_cast<int>(std::trunc(std::fmin(std::fmax(seconds, lowest), highest)));
}

}  // namespace

std::string QVAStopWatchFormatter::description() const {
  return formatString("<QVAStopWatchFormatter: %p>", static_cast<const void*>(this));
}

void QVAStopWatchFormatter::setFormat(int format) {
  if (format < 1 || format > 3) {
    ProcessLog::write(formatString("%s %s trying to set invalid format: %i", description().c_str(),
                                   "-[QVAStopWatchFormatter setFormat:]", format));
    return;
  }
  format_ = format;
}

std::optional<std::string> QVAStopWatchFormatter::formatTime(double seconds) const {
  const int total = wholeSeconds(seconds);
  switch (format_) {
    case 3:
      return formatString("%02i", total);
    case 2: {
      const int minutes = total / 60;
      return formatString("%02i:%02i", minutes, total - minutes * 60);
    }
    case 1: {
      const int hours = total / 3600;
      const int rest = total - hours * 3600;
      const int minutes = rest / 60;
      return formatString("%02i:%02i:%02i", hours, minutes, rest - minutes * 60);
    }
    default:
      ProcessLog::write(formatString("%s %s can't format time: %f because an invalid format was set: %i",
                                     description().c_str(), "-[QVAStopWatchFormatter formatTime:]", seconds,
                                     format_));
      return std::nullopt;
  }
}

}  // namespace qva
