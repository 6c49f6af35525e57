#include "patches/richtext/RTF_String_With_StringPlugIn.h"

#include "foundation/rtf/RTFStringExtensions.h"
#include "patches/richtext/RTF_StylePlugIn.h"

namespace qva {

const PatchClass& RTF_String_With_StringPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "RTF_String_With_StringPlugIn";
    c.name = "RTF String With String";
    c.description =
        "Produces an RTF string from the string specified in \"String\" using the format specified in \"RTF "
        "Style\". Use the \"RTF Style\" patch to feed this input.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = {
        PortDescription::port("inputString", PortType::String, "String", Value("Hello World!")),
        PortDescription::port("inputRTFStyle", PortType::String, "RTF Style",
                              Value(RTF_StylePlugIn::defaultStyleString())),
    };
    c.outputs = {PortDescription::port("outputRTFString", PortType::String, "RTF String")};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<RTF_String_With_StringPlugIn>(); };
    return c;
  }();
  return patchClass;
}

RTF_String_With_StringPlugIn::RTF_String_With_StringPlugIn() : QVAPlugIn(patchClass()) {}

bool RTF_String_With_StringPlugIn::execute(ExecutionContext&, double, const Arguments&) {
  TextAttributes style =
      RTFStringExtensions::describedRTFAttributes(inputString("inputRTFStyle")).value_or(TextAttributes{});
  AttributedString text = AttributedString::fromUtf8(inputString("inputString"), style);
  setValueForOutputKey(RTFStringExtensions::RTFAsPlainString(text).value_or(""), "outputRTFString");
  return true;
}

}  // namespace qva
