#pragma once

#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA URL String Decoder": percent escapes replaced by the UTF-8 characters they encode.
class QVAURLStringDecoderPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  QVAURLStringDecoderPlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
};

}  // namespace qva
