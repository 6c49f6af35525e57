#pragma once

#include "foundation/subtitles/ScriptRenderer.h"
#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Styled Subtitles": a SubStation Alpha script drawn as authored (every event on screen at the
// movie time, with its positions, styles, outlines and effects) into an image of the viewport's size.
class QVAStyledSubtitlesPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  QVAStyledSubtitlesPlugIn();
  ~QVAStyledSubtitlesPlugIn() override;

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

 private:
  void loadScript(ExecutionContext& context);
  void renderFrame(const PixelSize& viewport);

  ScriptRenderer renderer_;
  PixelSize renderedSize_{0, 0};
};

}  // namespace qva
