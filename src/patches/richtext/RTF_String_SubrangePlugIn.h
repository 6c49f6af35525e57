#pragma once

#include "framework/QVAPlugIn.h"

namespace qva {

// "RTF String Subrange": a range of an RTF document's text, as an RTF document that keeps its
// formatting.
class RTF_String_SubrangePlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  RTF_String_SubrangePlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
};

}  // namespace qva
