#pragma once

#include "framework/ExecutionContext.h"
#include "framework/Image.h"

namespace qva {

// Republishes an image that arrived on an input port, sharing its texture or its pixels instead of
// copying them. The new image keeps the input image alive and lets it go exactly once, when the host
// lets the new image go.
class QVAOutputImageProviderFromInputImage {
 public:
  // Nothing for no input image. The texture representation needs the host's GL context; without one,
  // or when the image has no texture, the pixel buffer is shared instead.
  static ImageRef outputImageProviderWithInputImage(const ImageRef& inputImage, ExecutionContext& context,
                                                    bool useTextureRepresentation);
};

}  // namespace qva
