#include "patches/timing/ConvertTimePlugIn.h"

#include "patches/timing/ReferenceTime.h"

namespace qva {

const PatchClass& ConvertTimePlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "ConvertTimePlugIn";
    c.name = "QVA Convert Time";
    c.description = "This patch converts Unix timestamps to 2001 reference time.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = {PortDescription::port("inputTime", PortType::Number, "Unix Time")};
    c.outputs = {PortDescription::port("outputTime", PortType::Number, "Reference Time")};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<ConvertTimePlugIn>(); };
    return c;
  }();
  return patchClass;
}

ConvertTimePlugIn::ConvertTimePlugIn() : QVAPlugIn(patchClass()) {}

bool ConvertTimePlugIn::execute(ExecutionContext&, double, const Arguments&) {
  if (didValueForInputKeyChange("inputTime")) {
    setValueForOutputKey(referenceTimeForUnixTime(inputNumber("inputTime")), "outputTime");
  }
  return true;
}

}  // namespace qva
