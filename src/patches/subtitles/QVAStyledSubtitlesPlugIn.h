#pragma once

#include "foundation/subtitles/ScriptRenderer.h"
#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Styled Subtitles": a SubStation Alpha script drawn as authored (every event on screen at the
// movie time, with its positions, styles, outlines and effects) into an image of the viewport's size, at
// the output's density.
class QVAStyledSubtitlesPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  QVAStyledSubtitlesPlugIn();
  ~QVAStyledSubtitlesPlugIn() override;

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

 private:
  void loadScript(ExecutionContext& context);
  // Draws the picture at the movie time into an image of size pixels, pixelDensity of them a logical one.
  void renderFrame(const PixelSize& size, double pixelDensity);

  ScriptRenderer renderer_;
  PixelSize renderedSize_{0, 0};
  double renderedScale_ = 1;
};

}  // namespace qva
