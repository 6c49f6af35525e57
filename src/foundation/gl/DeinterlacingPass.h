#pragma once

#include <optional>
#include <string>

#include "foundation/gl/Framebuffer.h"
#include "foundation/gl/GLProgram.h"
#include "framework/Image.h"

namespace qva {

// Copies an image's texture into a framebuffer of the same size, either as it is or, for interlaced
// material, as one of its fields line-doubled with a half-line interpolation, so that scaling the copy
// never mixes lines of different instants. A mask's alpha may then replace the copy's alpha; the mask
// is never de-interlaced.
class DeinterlacingPass {
 public:
  // The GLSL texts of the field pass, without the version and extension lines the driver wants first.
  // Per output row r the pixel is the average of field lines floor(r/2) and floor(r/2 + 1/2), field
  // line j being source row 2j (the odd field) or 2j + 1 (the even field).
  static const char* vertexShaderSource();
  static const char* fragmentShaderSource();

  // Draws into target, with nothing but the framebuffer's texture changed afterwards; the image's
  // texture is sampled with nearest filtering from then on. field: none for a plain copy, else whether
  // the even field is wanted. Answers what went wrong, or nothing: GL errors, or the driver's refusal
  // of the field pass's program (said once; such material is then copied as it is).
  std::optional<std::string> copy(Framebuffer& target, const TextureView& image, const TextureView* mask,
                                  std::optional<bool> evenField);

 private:
  // Builds the field pass's program the first time it is wanted; what the driver said when it refused.
  std::optional<std::string> buildProgram();

  std::optional<GLProgram> program_;
  bool refused_ = false;
};

}  // namespace qva
