#include "patches/richtext/RTF_String_SubrangePlugIn.h"

#include "foundation/rtf/RTFStringExtensions.h"

namespace qva {

const PatchClass& RTF_String_SubrangePlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "RTF_String_SubrangePlugIn";
    c.name = "RTF String Subrange";
    c.description = "Extracts a substring from an RTF string while retaining the original formatting.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = {
        PortDescription::port("inputRTFString", PortType::String, "RTF String"),
        PortDescription::port("inputIndex", PortType::Index, "Index", Value(std::uint32_t{0})),
        PortDescription::port("inputLength", PortType::Index, "Length", Value(std::uint32_t{1})),
    };
    c.outputs = {PortDescription::port("outputRTFString", PortType::String, "RTF String")};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<RTF_String_SubrangePlugIn>(); };
    return c;
  }();
  return patchClass;
}

RTF_String_SubrangePlugIn::RTF_String_SubrangePlugIn() : QVAPlugIn(patchClass()) {}

bool RTF_String_SubrangePlugIn::execute(ExecutionContext&, double, const Arguments&) {
  std::optional<AttributedString> text = RTFStringExtensions::RTFString(inputString("inputRTFString"));
  std::size_t index = inputIndex("inputIndex");
  std::string output;
  if (text && index <= text->length()) {
    // substring cuts the range at the end of the text.
    output =
        RTFStringExtensions::RTFAsPlainString(text->substring(index, inputIndex("inputLength"))).value_or("");
  }
  setValueForOutputKey(output, "outputRTFString");
  return true;
}

}  // namespace qva
