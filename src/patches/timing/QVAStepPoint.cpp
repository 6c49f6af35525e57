#include "patches/timing/QVAStepPoint.h"

#include "framework/StringFormat.h"
#include "patches/timing/PropertyListAccess.h"

namespace qva {

QVAStepPoint QVAStepPoint::stepPointWithDictionaryRepresentation(const PropertyList& dictionary) {
  return {propertyListDouble(dictionaryEntry(dictionary, "time")),
          propertyListDouble(dictionaryEntry(dictionary, "value"))};
}

PropertyList QVAStepPoint::dictionaryRepresentation() const {
  return {{"time", time_}, {"value", value_}};
}

std::string QVAStepPoint::description() const {
  return formatString("<QVAStepPoint: %p> time: %f, value: %f", static_cast<const void*>(this), time_,
                      value_);
}

int QVAStepPoint::compare(const QVAStepPoint& other) const {
  if (time_ == other.time_) {
    return 0;
  }
  return time_ > other.time_ ? 1 : -1;
}

}  // namespace qva
