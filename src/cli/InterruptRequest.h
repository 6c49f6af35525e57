#pragma once

#include <csignal>

namespace qva {

// While one lives, an interrupt (Ctrl-C) or a termination request does not end the process at once: it
// is noted, so that a long command can stop between two steps and clean up what it had begun. A second
// request ends the process as usual. One at a time.
class InterruptRequest {
 public:
  InterruptRequest();
  ~InterruptRequest();
  InterruptRequest(const InterruptRequest&) = delete;
  InterruptRequest& operator=(const InterruptRequest&) = delete;

  // The signal that was received, 0 while none was.
  int received() const;

 private:
  struct sigaction previousInterrupt_ {};
  struct sigaction previousTermination_ {};
};

}  // namespace qva
