#pragma once

#include <functional>
#include <string>

namespace qva {

// The process log: internal messages of patches and of the system. By default each line goes to
// standard error with a timestamp and the process prefix; a host or test may take the lines instead.
class ProcessLog {
 public:
  using Sink = std::function<void(const std::string& line)>;

  static void write(const std::string& line);
  // Replaces the sink and returns the previous one; an empty sink restores standard error.
  static Sink setSink(Sink sink);
  // The line as it is printed on standard error: "YYYY-MM-DD hh:mm:ss.mmm qva[pid] line".
  static std::string decorate(const std::string& line);
};

}  // namespace qva
