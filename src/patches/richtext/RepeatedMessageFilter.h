#pragma once

#include <string>

namespace qva {

// Lets a message through once while it repeats, so that a patch that retries at every execution (a file
// that stays missing) logs its failure once rather than every frame.
class RepeatedMessageFilter {
 public:
  // True when the message differs from the previous one and is not empty.
  bool isNew(const std::string& message);
  // The next message is new again, whatever it says.
  void clear() { previous_.clear(); }

 private:
  std::string previous_;
};

}  // namespace qva
