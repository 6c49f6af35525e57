#include "patches/timing/ReferenceTime.h"

#include <chrono>

namespace qva {

double referenceTimeForUnixTime(double unixTime) {
  return unixTime - kReferenceDateUnixTime;
}

double unixTimeForReferenceTime(double referenceTime) {
  return referenceTime + kReferenceDateUnixTime;
}

double currentReferenceTime() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return referenceTimeForUnixTime(std::chrono::duration<double>(sinceEpoch).count());
}

}  // namespace qva
