#include "foundation/providers/QVAOutputImageProviderFromInputImage.h"

#include "foundation/gl/GLContext.h"

namespace qva {

ImageRef QVAOutputImageProviderFromInputImage::outputImageProviderWithInputImage(
    const ImageRef& inputImage, ExecutionContext& context, bool useTextureRepresentation) {
  if (!inputImage) {
    return nullptr;
  }
  GLContext* gl = context.glContext();
  // The callbacks own the reference to the input image; destroying them releases it.
  if (useTextureRepresentation && gl != nullptr) {
    if (const auto texture = gl->textureForImage(*inputImage)) {
      return std::make_shared<TextureImage>(*texture, [retained = inputImage](const TextureView&) {});
    }
  }
  std::optional<PixelBufferView> pixels = inputImage->pixelBuffer();
  if (!pixels && gl != nullptr) {
    pixels = gl->pixelsForImage(*inputImage);
  }
  if (!pixels) {
    return nullptr;
  }
  return std::make_shared<BufferImage>(pixels->width, pixels->height, pixels->rowBytes, pixels->bytes,
                                       [retained = inputImage](const std::uint8_t*) {});
}

}  // namespace qva
