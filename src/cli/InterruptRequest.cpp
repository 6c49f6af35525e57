#include "cli/InterruptRequest.h"

namespace qva {

namespace {

volatile std::sig_atomic_t receivedSignal = 0;

void note(int signal) {
  receivedSignal = signal;
}

}  // namespace

InterruptRequest::InterruptRequest() {
  receivedSignal = 0;
  struct sigaction action {};
  action.sa_handler = note;
  sigemptyset(&action.sa_mask);
  // The handler is reset when it runs, so a second request ends the process.
  action.sa_flags = SA_RESETHAND | SA_RESTART;
  sigaction(SIGINT, &action, &previousInterrupt_);
  sigaction(SIGTERM, &action, &previousTermination_);
}

InterruptRequest::~InterruptRequest() {
  sigaction(SIGINT, &previousInterrupt_, nullptr);
  sigaction(SIGTERM, &previousTermination_, nullptr);
}

int InterruptRequest::received() const {
  return receivedSignal;
}

}  // namespace qva
