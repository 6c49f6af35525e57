#pragma once

#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Composition Renderer Image": republishes the video texture a playout host passes in the
// per-frame arguments as an image, updated on the first field of each frame.
class QVACompositionRendererImagePlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  QVACompositionRendererImagePlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
};

}  // namespace qva
