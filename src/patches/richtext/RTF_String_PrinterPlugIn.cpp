#include "patches/richtext/RTF_String_PrinterPlugIn.h"

#include "foundation/rtf/RTFStringExtensions.h"
#include "framework/StringFormat.h"
#include "framework/ValueTransformers.h"
#include "patches/richtext/RTF_StylePlugIn.h"

namespace qva {

namespace {

constexpr const char* kFormatStringKey = "formatString";

std::string argumentKey(unsigned index) {
  return formatString("argument_%u", index);
}

}  // namespace

const PatchClass& RTF_String_PrinterPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "RTF_String_PrinterPlugIn";
    c.name = "RTF String Printer";
    c.description =
        "This patch generates an RTF formatted string from a template and a series of arguments. See the "
        "description of \"String Printer\" for more details about the concatenation behavior.\n\nThe "
        "arguments "
        "can be RTF formatted strings or plain text strings. RTF formatted strings keep their formatting, "
        "while "
        "the RTF style specified using the \"RTF Style\" input is applied to plain text strings (use the "
        "\"RTF "
        "Style\" patch to feed this input port).";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = {PortDescription::port("inputRTFStyle", PortType::String, "RTF Style",
                                      Value(RTF_StylePlugIn::defaultStyleString()))};
    c.outputs = {PortDescription::port("outputString", PortType::String, "String")};
    // Only the template: the version stamp is deliberately not among this patch's settings.
    c.plugInKeys = {kFormatStringKey};
    c.create = [] { return std::make_unique<RTF_String_PrinterPlugIn>(); };
    return c;
  }();
  return patchClass;
}

bool RTF_String_PrinterPlugIn::validateArgumentCount(int& count) {
  if (count < 0) {
    count = 0;
  }
  return true;
}

RTF_String_PrinterPlugIn::RTF_String_PrinterPlugIn() : QVAPlugIn(patchClass()) {
  setFormatString("%@ %@!");
}

void RTF_String_PrinterPlugIn::setFormatString(const std::string& formatString) {
  if (formatString == formatString_) {
    return;
  }
  formatString_ = formatString;
  int count = FormatStringToArgumentCount::transformedValue(formatString_).value_or(0);
  validateArgumentCount(count);
  setArgumentCount(static_cast<unsigned>(count));
}

void RTF_String_PrinterPlugIn::setArgumentCount(unsigned count) {
  for (unsigned index = argumentCount_; index < count; ++index) {
    PortAttributes attributes;
    attributes.name = qva::formatString("Argument #%u", index + 1);
    addInputPort(PortType::String, argumentKey(index), attributes);
  }
  for (unsigned index = count; index < argumentCount_; ++index) {
    removeInputPort(argumentKey(index));
  }
  argumentCount_ = count;
}

bool RTF_String_PrinterPlugIn::execute(ExecutionContext&, double, const Arguments&) {
  if (formatString_.empty()) {
    setValueForOutputKey(std::string(), "outputString");
    return true;
  }
  TextAttributes style =
      RTFStringExtensions::describedRTFAttributes(inputString("inputRTFStyle")).value_or(TextAttributes{});
  AttributedString result = AttributedString::fromUtf8(formatString_, style);
  for (unsigned index = 0; index < argumentCount_; ++index) {
    // Each search starts over at the beginning, so a "%@" inside an argument takes the next one.
    std::size_t placeholder = result.text().find(u"%@");
    if (placeholder == std::u16string::npos) {
      break;
    }
    std::string argument = inputString(argumentKey(index));
    AttributedString replacement;
    if (RTFStringExtensions::isValidRTF(argument)) {
      replacement = RTFStringExtensions::RTFString(argument).value_or(AttributedString::fromUtf8(argument));
    } else {
      replacement = AttributedString::fromUtf8(argument, style);
    }
    result.replace(placeholder, 2, replacement);
  }
  setValueForOutputKey(RTFStringExtensions::RTFAsPlainString(result).value_or(""), "outputString");
  return true;
}

PropertyList RTF_String_PrinterPlugIn::serializedValueForKey(const std::string& key) const {
  if (key == kFormatStringKey) {
    return formatString_;
  }
  return QVAPlugIn::serializedValueForKey(key);
}

void RTF_String_PrinterPlugIn::setSerializedValueForKey(const PropertyList& value, const std::string& key) {
  if (key == kFormatStringKey && value.is_string()) {
    setFormatString(value.get<std::string>());
  }
  QVAPlugIn::setSerializedValueForKey(value, key);
}

}  // namespace qva
