#pragma once

#include "framework/QVAPlugIn.h"

namespace qva {

// "RTF String to Plain Text": the text of an RTF document; other strings pass through unchanged.
class RTF_String_to_Plain_TextPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  RTF_String_to_Plain_TextPlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
};

}  // namespace qva
