#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "foundation/image/Bitmap.h"
#include "framework/ExecutionContext.h"
#include "framework/Image.h"

namespace qva {

// The scroller's output image: the two tiles drawn side by side at a scroll position, as two textured
// quads in the host's GL context. It holds the patch's tiles weakly: once the patch stops or remakes
// its tiles, the image is detached and has neither bounds nor pixels.
class TextScrollerImageProvider final : public Image {
 public:
  // One tile: its pixels (BGRA8, premultiplied, rows of width × 4 bytes) and the 2D texture they are
  // uploaded to (0 without a GL context).
  struct RenderTarget {
    Bitmap renderBitmap;
    std::uint32_t textureName = 0;
    // The rows of the texture that hold ink: a crawl's text fills a band of its tiles.
    Bitmap::Rows visibleRows;
  };
  // The two tiles of width × height pixels, strip tile k living in slot (k + 1) mod 2.
  struct RenderTargets {
    int width = 0;
    int height = 0;
    std::array<std::optional<RenderTarget>, 2> slots;
  };

  TextScrollerImageProvider(std::weak_ptr<const RenderTargets> plugin, double renderPosition,
                            bool rightToLeft, std::string colorSpace);

  // The whole pixel the image shows at a scroll position: truncated, and 0 for positions before the
  // strip's start or that are not numbers.
  static std::int64_t scrollPixel(double renderPosition);

  // (0, 0, width, height); empty when detached.
  Rect imageBounds() const;
  const std::string& imageColorSpace() const { return colorSpace_; }
  // Pixels to GL units across the image: x / width × 2.
  double renderTargetToGL(double x) const;

  int width() const override;
  int height() const override;
  std::optional<PixelBufferView> pixelBuffer() const override { return std::nullopt; }
  // While attached to tiles that have textures.
  bool canRender() const override;
  bool render(GLContext& context) const override;
  // The two slices of tiles side by side, each pixel from one of them.
  bool rendersEveryPixelOnce() const override { return true; }

 private:
  // One slice of a tile: texels from offset to offset + sliceWidth drawn at image x, with only the
  // tile's visible rows when transparent pixels draw nothing.
  void renderTarget(const RenderTargets& targets, std::size_t slot, double x, double offset,
                    double sliceWidth, bool visibleRowsOnly) const;

  std::weak_ptr<const RenderTargets> plugin_;
  int width_;
  int height_;
  double renderPosition_;
  bool rightToLeft_;
  std::string colorSpace_;
};

}  // namespace qva
