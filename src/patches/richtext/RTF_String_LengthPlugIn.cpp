#include "patches/richtext/RTF_String_LengthPlugIn.h"

#include "foundation/rtf/RTFStringExtensions.h"

namespace qva {

const PatchClass& RTF_String_LengthPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "RTF_String_LengthPlugIn";
    c.name = "RTF String Length";
    c.description = "This patch returns the number of characters in a string.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = {
        PortDescription::port("inputString", PortType::String, "String"),
        PortDescription::port("inputMode", PortType::Index, "Mode", Value(std::uint32_t{Auto}))
            .withMaximum(2)
            .withMenu({"Plain Text", "RTF Text", "Auto"}),
    };
    c.outputs = {PortDescription::port("outputLength", PortType::Index, "Length")};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<RTF_String_LengthPlugIn>(); };
    return c;
  }();
  return patchClass;
}

RTF_String_LengthPlugIn::RTF_String_LengthPlugIn() : QVAPlugIn(patchClass()) {}

bool RTF_String_LengthPlugIn::execute(ExecutionContext&, double, const Arguments&) {
  const std::string string = inputString("inputString");
  const auto plainLength = [&] { return TextEncoding::utf16FromUtf8(string).size(); };
  const auto rtfLength = [&] {
    auto text = RTFStringExtensions::RTFString(string);
    return text ? text->length() : 0;
  };
  std::size_t length = 0;
  switch (inputIndex("inputMode")) {
    case PlainText:
      length = plainLength();
      break;
    case RTFText:
      length = rtfLength();
      break;
    case Auto:
      length = RTFStringExtensions::isValidRTF(string) ? rtfLength() : plainLength();
      break;
    default:
      // Unknown modes leave the output as it was.
      return true;
  }
  setValueForOutputKey(static_cast<std::uint32_t>(length), "outputLength");
  return true;
}

}  // namespace qva
