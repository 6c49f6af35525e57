#pragma once

#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA URL String Encoder": a string made safe as a URL query parameter value.
class QVAURLStringEncoderPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  QVAURLStringEncoderPlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
};

}  // namespace qva
