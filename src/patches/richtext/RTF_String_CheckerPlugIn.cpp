#include "patches/richtext/RTF_String_CheckerPlugIn.h"

#include "foundation/rtf/RTFStringExtensions.h"

namespace qva {

const PatchClass& RTF_String_CheckerPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "RTF_String_CheckerPlugIn";
    c.name = "RTF String Checker";
    c.description =
        "If the string at the input port is a string with valid RTF formatting, the output is true. If not, "
        "the "
        "output is false.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = {PortDescription::port("inputString", PortType::String, "String")};
    c.outputs = {PortDescription::port("outputIsRTFString", PortType::Boolean, "Is valid RTF String")};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<RTF_String_CheckerPlugIn>(); };
    return c;
  }();
  return patchClass;
}

RTF_String_CheckerPlugIn::RTF_String_CheckerPlugIn() : QVAPlugIn(patchClass()) {}

bool RTF_String_CheckerPlugIn::execute(ExecutionContext&, double, const Arguments&) {
  setValueForOutputKey(RTFStringExtensions::isValidRTF(inputString("inputString")), "outputIsRTFString");
  return true;
}

}  // namespace qva
