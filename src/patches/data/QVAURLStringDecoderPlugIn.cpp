#include "patches/data/QVAURLStringDecoderPlugIn.h"

#include "foundation/encodings/StringEncodings.h"
#include "framework/PercentEncoding.h"

namespace qva {

const PatchClass& QVAURLStringDecoderPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAURLStringDecoderPlugIn";
    c.name = "QVA URL String Decoder";
    c.description = "Replaces percent encodings in the given URL string.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = {PortDescription::port("inputURLString", PortType::String, "URL String")};
    c.outputs = {PortDescription::port("outputString", PortType::String, "String")};
    c.sortedPropertyPortKeys = std::vector<std::string>{"inputURLString", "outputString"};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVAURLStringDecoderPlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVAURLStringDecoderPlugIn::QVAURLStringDecoderPlugIn() : QVAPlugIn(patchClass()) {}

bool QVAURLStringDecoderPlugIn::execute(ExecutionContext&, double, const Arguments&) {
  const std::string text = inputString("inputURLString");
  if (text.empty()) {
    setValueForOutputKey(Value(""), "outputString");
    return true;
  }
  // Escapes that do not form valid UTF-8 give no string at all.
  const std::optional<std::string> decoded = StringEncodings::decode(percentDecode(text), "UTF-8");
  setValueForOutputKey(decoded ? Value(*decoded) : Value(), "outputString");
  return true;
}

}  // namespace qva
