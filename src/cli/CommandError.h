#pragma once

#include <stdexcept>
#include <string>

namespace qva {

// A command that cannot do its work: `qva` prints the message on standard error, unless it is empty,
// and exits with the status, 2 unless given.
class CommandError : public std::runtime_error {
 public:
  explicit CommandError(const std::string& message, int status = 2)
      : std::runtime_error(message), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

}  // namespace qva
