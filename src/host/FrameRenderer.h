#pragma once

#include <functional>
#include <optional>
#include <string>

#include "foundation/image/Bitmap.h"
#include "foundation/video/FieldOrder.h"
#include "framework/ExecutionContext.h"
#include "framework/Patch.h"
#include "host/Renderer.h"

namespace qva {

// Turns a scene into output frames on a renderer. A progressive frame is one pass at its own time, with
// no per-frame arguments. An interlaced frame is two passes at the times of its fields, half a frame
// apart, woven line by line; each pass gets the arguments a playout host gives: "interlaceField" (1
// for the lower field, the lines that count even from 1 at the top), "firstField", and full "opacity"
// and "alpha".
class FrameRenderer {
 public:
  // Draws the scene at a time with the per-frame arguments, after the canvas was cleared.
  using Scene = std::function<void(double time, const Arguments& arguments)>;

  FrameRenderer(Renderer& renderer, ExecutionContext& context, Color background, double frameRate,
                FieldOrder fieldOrder);

  // Frame number index into frame, a bitmap of the renderer's size; an empty string, or why not.
  std::string render(long long index, const Scene& scene, Bitmap& frame);

  static Arguments fieldArguments(bool lowerField, bool firstField);

 private:
  Renderer& renderer_;
  ExecutionContext& context_;
  Color background_;
  double frameRate_;
  FieldOrder fieldOrder_;
  // The second field of a frame, read whole before its lines are woven in.
  std::optional<Bitmap> secondField_;
};

}  // namespace qva
