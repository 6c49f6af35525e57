#pragma once

#include <array>
#include <memory>
#include <string>

#include "foundation/media/MovieTexture.h"
#include "framework/ExecutionContext.h"
#include "framework/Image.h"

namespace qva {

// The movie player's output image: the frame texture drawn as one quad over the image, mirrored about
// either axis as the flags say. It shares the texture with the player and later images of the same
// frame.
class QVAMovieImageProvider final : public Image {
 public:
  // Texture coordinates of the frame's corners.
  struct TexturePoint {
    double s = 0;
    double t = 0;
  };

  QVAMovieImageProvider(std::shared_ptr<const MovieTexture> texture, bool mirrorXAxis, bool mirrorYAxis);

  Rect imageBounds() const;
  const std::string& imageColorSpace() const;
  // The frame's texture, shared with the player.
  const MovieTexture& frameTexture() const { return *texture_; }
  bool mirrorXAxis() const { return mirrorXAxis_; }
  bool mirrorYAxis() const { return mirrorYAxis_; }
  // The texture coordinates at the quad's corners (-1, -1), (-1, 1), (1, 1), (1, -1).
  std::array<TexturePoint, 4> cornerCoordinates() const;

  int width() const override { return texture_->view().width; }
  int height() const override { return texture_->view().height; }
  std::optional<PixelBufferView> pixelBuffer() const override { return std::nullopt; }
  // Unmirrored, the image is the frame's texture itself; mirrored, it draws the texture.
  std::optional<TextureView> texture() const override;
  bool canRender() const override { return true; }
  bool render(GLContext& context) const override;

 private:
  std::shared_ptr<const MovieTexture> texture_;
  bool mirrorXAxis_;
  bool mirrorYAxis_;
};

}  // namespace qva
