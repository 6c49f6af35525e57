#include "patches/richtext/RTF_String_to_Plain_TextPlugIn.h"

#include "foundation/rtf/RTFStringExtensions.h"

namespace qva {

const PatchClass& RTF_String_to_Plain_TextPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "RTF_String_to_Plain_TextPlugIn";
    c.name = "RTF String to Plain Text";
    c.description =
        "This patch converts an RTF string to a plain string. If the string entered was plan text already, "
        "the "
        "\"Did Convert\" output port is set to false.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = {PortDescription::port("inputRTFString", PortType::String, "RTF String")};
    c.outputs = {PortDescription::port("outputString", PortType::String, "String"),
                 PortDescription::port("outputDidConvert", PortType::Boolean, "Did Convert")};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<RTF_String_to_Plain_TextPlugIn>(); };
    return c;
  }();
  return patchClass;
}

RTF_String_to_Plain_TextPlugIn::RTF_String_to_Plain_TextPlugIn() : QVAPlugIn(patchClass()) {}

bool RTF_String_to_Plain_TextPlugIn::execute(ExecutionContext&, double, const Arguments&) {
  const std::string input = inputString("inputRTFString");
  std::optional<AttributedString> text = RTFStringExtensions::RTFString(input);
  setValueForOutputKey(text ? text->utf8() : input, "outputString");
  setValueForOutputKey(text.has_value(), "outputDidConvert");
  return true;
}

}  // namespace qva
