#pragma once

#include "framework/QVAPlugIn.h"

namespace qva {

// "RTF String Checker": whether the input string is a valid RTF document.
class RTF_String_CheckerPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  RTF_String_CheckerPlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
};

}  // namespace qva
