#include "patches/timing/QVAStepFunctionPlugIn.h"

#include "patches/timing/PropertyListAccess.h"

namespace qva {

namespace {
constexpr const char* kStepPointsKey = "stepPoints";
}

const PatchClass& QVAStepFunctionPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAStepFunctionPlugIn";
    c.name = "QVA Step Function";
    c.description =
        "Enter some time/value pairs in this patch's settings to describe the step function on the output.";
    c.executionMode = ExecutionMode::Provider;
    c.timeMode = TimeMode::TimeBase;
    c.outputs = {PortDescription::port("outputValue", PortType::Number, "Value")};
    c.plugInKeys = QVAPlugIn::plugInKeys({kStepPointsKey});
    c.create = [] { return std::make_unique<QVAStepFunctionPlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVAStepFunctionPlugIn::QVAStepFunctionPlugIn() : QVAPlugIn(patchClass()) {}

PropertyList QVAStepFunctionPlugIn::serializedValueForKey(const std::string& key) const {
  if (key != kStepPointsKey) {
    return QVAPlugIn::serializedValueForKey(key);
  }
  PropertyList points = PropertyList::array();
  for (const QVAStepPoint& point : stepPoints_) {
    points.push_back(point.dictionaryRepresentation());
  }
  return points;
}

void QVAStepFunctionPlugIn::setSerializedValueForKey(const PropertyList& value, const std::string& key) {
  if (key != kStepPointsKey) {
    QVAPlugIn::setSerializedValueForKey(value, key);
    return;
  }
  if (auto dictionaries = dictionaryList(value, patchClass().className, key)) {
    std::vector<QVAStepPoint> points;
    for (const PropertyList& dictionary : *dictionaries) {
      points.push_back(QVAStepPoint::stepPointWithDictionaryRepresentation(dictionary));
    }
    setStepPoints(std::move(points));
  }
}

bool QVAStepFunctionPlugIn::startExecution(ExecutionContext&) {
  newStartTime_ = true;
  return true;
}

double QVAStepFunctionPlugIn::valueForTime(double time) const {
  double value = 0;
  for (const QVAStepPoint& point : stepPoints_) {
    if (point.time() > time) {
      break;
    }
    // NaN times are never passed.
    if (time >= point.time()) {
      value = point.value();
    }
  }
  return value;
}

bool QVAStepFunctionPlugIn::execute(ExecutionContext&, double time, const Arguments&) {
  if (newStartTime_) {
    newStartTime_ = false;
    startTime_ = time;
  }
  setValueForOutputKey(valueForTime(time - startTime_), "outputValue");
  return true;
}

}  // namespace qva
