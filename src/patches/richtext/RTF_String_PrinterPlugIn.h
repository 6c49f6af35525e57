#pragma once

#include <string>

#include "framework/QVAPlugIn.h"

namespace qva {

// "RTF String Printer": fills the template's "%@" placeholders in order with the argument ports; RTF
// arguments keep their formatting, plain ones and the template take the style string.
class RTF_String_PrinterPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();
  // A negative count becomes 0; every count is valid.
  static bool validateArgumentCount(int& count);

  RTF_String_PrinterPlugIn();

  const std::string& formatString() const { return formatString_; }
  // Stores the template and makes one argument port per "%@" in it.
  void setFormatString(const std::string& formatString);
  unsigned argumentCount() const { return argumentCount_; }
  // Adds ports up to the count, or removes the highest ones above it.
  void setArgumentCount(unsigned count);

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
  PropertyList serializedValueForKey(const std::string& key) const override;
  void setSerializedValueForKey(const PropertyList& value, const std::string& key) override;

 private:
  std::string formatString_;
  unsigned argumentCount_ = 0;
};

}  // namespace qva
