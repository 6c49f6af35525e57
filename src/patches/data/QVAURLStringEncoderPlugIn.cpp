#include "patches/data/QVAURLStringEncoderPlugIn.h"

#include "framework/PercentEncoding.h"

namespace qva {

const PatchClass& QVAURLStringEncoderPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAURLStringEncoderPlugIn";
    c.name = "QVA URL String Encoder";
    c.description =
        "Inserts percent encodings in the given string to ensure it can be used as a query parameter in an "
        "URL.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = {PortDescription::port("inputString", PortType::String, "String")};
    c.outputs = {PortDescription::port("outputURLString", PortType::String, "URL String")};
    c.sortedPropertyPortKeys = std::vector<std::string>{"inputString", "outputURLString"};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVAURLStringEncoderPlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVAURLStringEncoderPlugIn::QVAURLStringEncoderPlugIn() : QVAPlugIn(patchClass()) {}

bool QVAURLStringEncoderPlugIn::execute(ExecutionContext&, double, const Arguments&) {
  // Only the unreserved characters stay: every reserved one ("!*'();:@&=+$,/?%#[]") is escaped too, so
  // the result is safe as a query parameter value.
  setValueForOutputKey(Value(percentEncode(inputString("inputString"))), "outputURLString");
  return true;
}

}  // namespace qva
