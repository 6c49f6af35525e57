#pragma once

#include <memory>

#include "foundation/media/MovieFrame.h"
#include "framework/Image.h"

namespace qva {

// A movie frame in a GL texture of the current context (2D, first row at the top), deleted with the
// object. Frames are shared by the images that show them, so a texture is refilled only when nobody
// else holds it.
class MovieTexture {
 public:
  // The frame in texture, refilling the given one when it is the only reference and of the frame's size,
  // else in a new texture. Null when the frame has no pixels.
  static std::shared_ptr<MovieTexture> holding(const MovieFrame& frame,
                                               const std::shared_ptr<MovieTexture>& reusable);
  ~MovieTexture();
  MovieTexture(const MovieTexture&) = delete;
  MovieTexture& operator=(const MovieTexture&) = delete;

  const TextureView& view() const { return view_; }

 private:
  explicit MovieTexture(const TextureView& view) : view_(view) {}
  void fill(const MovieFrame& frame);

  TextureView view_;
  bool filled_ = false;
};

}  // namespace qva
