#include "patches/timing/QVAPatchTimePlugIn.h"

namespace qva {

const PatchClass& QVAPatchTimePlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAPatchTimePlugIn";
    c.name = "QVA Patch Time";
    c.description =
        "This patch is the same as the standard \"Patch Time\" patch, but it works correctly inside "
        "composition layers.";
    c.executionMode = ExecutionMode::Provider;
    c.timeMode = TimeMode::TimeBase;
    c.outputs = {PortDescription::port("outputTime", PortType::Number, "Time")};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVAPatchTimePlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVAPatchTimePlugIn::QVAPatchTimePlugIn() : QVAPlugIn(patchClass()) {}

bool QVAPatchTimePlugIn::execute(ExecutionContext&, double time, const Arguments&) {
  if (firstExecution_) {
    firstExecution_ = false;
    startTime_ = time;
  }
  setValueForOutputKey(time - startTime_, "outputTime");
  return true;
}

}  // namespace qva
