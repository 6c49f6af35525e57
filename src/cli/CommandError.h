#pragma once

#include <stdexcept>

namespace qva {

// A command that cannot do its work: `qva` prints the message on standard error and exits with 2.
class CommandError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace qva
