#include "patches/richtext/RepeatedMessageFilter.h"

namespace qva {

bool RepeatedMessageFilter::isNew(const std::string& message) {
  const bool isNew = !message.empty() && message != previous_;
  previous_ = message;
  return isNew;
}

}  // namespace qva
