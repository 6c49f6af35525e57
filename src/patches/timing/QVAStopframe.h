#pragma once

#include <string>

#include "framework/PropertyList.h"

namespace qva {

// A named time of the Stopframes patch's local time at which it pauses.
class QVAStopframe {
 public:
  QVAStopframe() = default;
  QVAStopframe(double time, std::string name) : time_(time), name_(std::move(name)) {}

  // A new stop frame at time 0 named "Stopframe".
  static QVAStopframe stopframe() { return {0, "Stopframe"}; }
  // "time" read as a number and "name" as a string; missing or odd entries read as 0 and "".
  static QVAStopframe stopframeWithDictionaryRepresentation(const PropertyList& dictionary);

  double time() const { return time_; }
  void setTime(double time) { time_ = time; }
  const std::string& name() const { return name_; }
  void setName(std::string name) { name_ = std::move(name); }

  PropertyList dictionaryRepresentation() const;
  // 0 for equal times, 1 when this one is later, -1 otherwise: ascending order by time.
  int compare(const QVAStopframe& other) const;

 private:
  double time_ = 0;
  std::string name_;
};

}  // namespace qva
