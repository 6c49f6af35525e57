#pragma once

#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Convert Time": a Unix timestamp as a reference time.
class ConvertTimePlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  ConvertTimePlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
};

}  // namespace qva
