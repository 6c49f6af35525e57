#include "patches/timing/QVAStopframe.h"

#include "patches/timing/PropertyListAccess.h"

namespace qva {

QVAStopframe QVAStopframe::stopframeWithDictionaryRepresentation(const PropertyList& dictionary) {
  return {propertyListDouble(dictionaryEntry(dictionary, "time")),
          propertyListString(dictionaryEntry(dictionary, "name"))};
}

PropertyList QVAStopframe::dictionaryRepresentation() const {
  return {{"time", time_}, {"name", name_}};
}

int QVAStopframe::compare(const QVAStopframe& other) const {
  if (time_ == other.time_) {
    return 0;
  }
  return time_ > other.time_ ? 1 : -1;
}

}  // namespace qva
