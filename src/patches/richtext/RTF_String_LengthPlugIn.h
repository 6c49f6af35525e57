#pragma once

#include "framework/QVAPlugIn.h"

namespace qva {

// "RTF String Length": the length of the string as plain text, of the RTF document's text, or either
// depending on whether the string is RTF.
class RTF_String_LengthPlugIn final : public QVAPlugIn {
 public:
  enum Mode : std::uint32_t { PlainText = 0, RTFText = 1, Auto = 2 };

  static const PatchClass& patchClass();

  RTF_String_LengthPlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
};

}  // namespace qva
