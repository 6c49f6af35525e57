#include <gtest/gtest.h>

#include "foundation/dispatch/TaskQueue.h"
#include "foundation/image/Bitmap.h"
#include "foundation/providers/QVAOutputImageProvider.h"
#include "foundation/providers/QVAOutputImageProviderFromInputImage.h"
#include "support/GLTest.h"

namespace qva {
namespace {

ImageRef smallImage() {
  auto bitmap = Bitmap::allocate(3, 2, Bitmap::paddedRowBytes(3));
  bitmap->row(1)[8] = 77;
  return std::move(*bitmap).toImage();
}

using OutputImageProviderGLTest = GLTest;

TEST_F(OutputImageProviderGLTest, PlaceholderIsATransparentSquare) {
  const QVAOutputImageProvider provider("sRGB");
  EXPECT_EQ(provider.width(), 256);
  EXPECT_EQ(provider.imageBounds().width, 256);
  EXPECT_EQ(provider.imageColorSpace(), "sRGB");
  EXPECT_TRUE(provider.canRender());
  const auto pixels = gl_->pixelsForImage(provider);
  ASSERT_TRUE(pixels);
  ASSERT_EQ(pixels->height, 256);
  for (int y = 0; y < 256; y += 51) {
    for (std::size_t i = 0; i < 256 * 4; ++i) {
      ASSERT_EQ(pixels->bytes[y * pixels->rowBytes + i], 0);
    }
  }
}

TEST(OutputImageProviderTest, NoInputImageNoProvider) {
  TaskQueue queue;
  ExecutionContext context(queue);
  EXPECT_EQ(QVAOutputImageProviderFromInputImage::outputImageProviderWithInputImage(nullptr, context, false),
            nullptr);
  EXPECT_EQ(QVAOutputImageProviderFromInputImage::outputImageProviderWithInputImage(nullptr, context, true),
            nullptr);
}

TEST(OutputImageProviderTest, BufferPathSharesPixelsAndReleasesTheInputOnce) {
  TaskQueue queue;
  ExecutionContext context(queue);
  ImageRef input = smallImage();
  const std::weak_ptr<const Image> watch = input;
  // Without a GL context the texture path falls back to sharing the buffer.
  for (bool texture : {false, true}) {
    ImageRef provider =
        QVAOutputImageProviderFromInputImage::outputImageProviderWithInputImage(input, context, texture);
    ASSERT_TRUE(provider);
    EXPECT_EQ(input.use_count(), 2);
    EXPECT_EQ(provider->pixelBuffer()->bytes, input->pixelBuffer()->bytes);
    EXPECT_EQ(provider->pixelBuffer()->rowBytes, 16u);
    provider.reset();
    EXPECT_EQ(input.use_count(), 1);
  }
  ImageRef provider =
      QVAOutputImageProviderFromInputImage::outputImageProviderWithInputImage(input, context, false);
  input.reset();
  // The provider alone keeps the pixels alive.
  EXPECT_FALSE(watch.expired());
  EXPECT_EQ(provider->pixelBuffer()->bytes[16 + 8], 77);
  provider.reset();
  EXPECT_TRUE(watch.expired());
}

TEST_F(OutputImageProviderGLTest, TexturePathSharesTheTexture) {
  TaskQueue queue;
  ExecutionContext context(queue);
  context.setGLContext(gl_.get());
  ImageRef input = smallImage();
  ImageRef provider =
      QVAOutputImageProviderFromInputImage::outputImageProviderWithInputImage(input, context, true);
  ASSERT_TRUE(provider);
  ASSERT_TRUE(provider->texture());
  EXPECT_EQ(provider->texture()->name, gl_->textureForImage(*input)->name);
  EXPECT_FALSE(provider->pixelBuffer());
  const auto pixels = gl_->pixelsForImage(*provider);
  ASSERT_TRUE(pixels);
  EXPECT_EQ(pixels->bytes[pixels->rowBytes + 8], 77);
  EXPECT_EQ(input.use_count(), 2);
  provider.reset();
  EXPECT_EQ(input.use_count(), 1);
}

}  // namespace
}  // namespace qva
