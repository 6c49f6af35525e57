#pragma once

#include <stdexcept>

namespace qva {

// A Photoshop document that cannot be read: damaged, truncated, or using a feature the reader refuses.
// The message is one line for the user.
class PsdFormatError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace qva
