#pragma once

#include <stdexcept>
#include <string>

namespace qva {

// A request the control server refuses: the HTTP status to answer with and a message for the client.
class ControlRequestError : public std::runtime_error {
 public:
  ControlRequestError(int status, const std::string& message)
      : std::runtime_error(message), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

}  // namespace qva
