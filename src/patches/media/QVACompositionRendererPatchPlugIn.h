#pragma once

#include <memory>

#include "framework/QVAPlugIn.h"
#include "patches/render/QVALumoRunVideoRenderer.h"

namespace qva {

// "QVA Composition Renderer Patch": draws the video texture a playout host passes in the per-frame
// arguments as a quad in the scene, at the host's opacity, moved a raster line when the host inverts
// the fields.
class QVACompositionRendererPatchPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  QVACompositionRendererPatchPlugIn();
  ~QVACompositionRendererPatchPlugIn() override;

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
  void stopExecution(ExecutionContext& context) override;

 private:
  std::unique_ptr<QVALumoRunVideoRenderer> videoRenderer;
};

}  // namespace qva
