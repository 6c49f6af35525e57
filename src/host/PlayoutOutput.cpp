#include "host/PlayoutOutput.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

namespace qva {

namespace {

// Niceness added to the threads the outputs run on.
constexpr int kOutputNiceness = 10;

}  // namespace

PlayoutOutput::~PlayoutOutput() = default;

void PlayoutOutput::lowerThreadPriority() {
  const auto thread = static_cast<id_t>(gettid());
  errno = 0;
  const int niceness = getpriority(PRIO_PROCESS, thread);
  if (errno == 0) {
    setpriority(PRIO_PROCESS, thread, niceness + kOutputNiceness);
  }
}

}  // namespace qva
