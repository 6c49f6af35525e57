#pragma once

#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Image Loader": decodes a local image file into a premultiplied BGRA buffer image, with its size
// in pixels and in composition units (one texel per screen pixel).
class QVAImageLoaderPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();
  QVAImageLoaderPlugIn() : QVAPlugIn(patchClass()) {}

  double executionTimeForContext(ExecutionContext& context, double time, const Arguments& arguments) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
};

}  // namespace qva
