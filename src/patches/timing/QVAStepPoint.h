#pragma once

#include <string>

#include "framework/PropertyList.h"

namespace qva {

// One step of a step function: the output holds value from time on.
class QVAStepPoint {
 public:
  QVAStepPoint() = default;
  QVAStepPoint(double time, double value) : time_(time), value_(value) {}

  // A new step at time 0 with value 0.
  static QVAStepPoint stepPoint() { return {}; }
  // "time" and "value" read as numbers; missing or odd entries read as 0.
  static QVAStepPoint stepPointWithDictionaryRepresentation(const PropertyList& dictionary);

  double time() const { return time_; }
  void setTime(double time) { time_ = time; }
  double value() const { return value_; }
  void setValue(double value) { value_ = value; }

  PropertyList dictionaryRepresentation() const;
  std::string description() const;
  // 0 for equal times, 1 when this one is later, -1 otherwise: ascending order by time.
  int compare(const QVAStepPoint& other) const;

 private:
  double time_ = 0;
  double value_ = 0;
};

}  // namespace qva
