#pragma once

#include "framework/QVAPlugIn.h"

namespace qva {

// "RTF String With String": plain text made into an RTF document in the style string's format.
class RTF_String_With_StringPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  RTF_String_With_StringPlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
};

}  // namespace qva
