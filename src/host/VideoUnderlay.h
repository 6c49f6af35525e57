#pragma once

#include <memory>
#include <string>

#include "foundation/media/MovieFile.h"
#include "foundation/media/MovieTexture.h"
#include "framework/ExecutionContext.h"
#include "host/PatchHost.h"

namespace qva {

// A movie under a composition: each frame draws the movie frame of the composition time across the
// canvas's width, as the bottom layer, before the composition's consumers draw over it.
class VideoUnderlay {
 public:
  struct Opening {
    std::unique_ptr<VideoUnderlay> underlay;
    std::string error;
  };

  static Opening open(const std::string& path);

  int width() const { return movie_->width(); }
  int height() const { return movie_->height(); }
  double frameRate() const { return movie_->frameRate(); }
  double seconds() const { return static_cast<double>(movie_->duration()) / movie_->timeScale(); }

  // Draws the frame shown at the time onto the canvas the context draws to.
  void draw(ExecutionContext& context, double time);

 private:
  explicit VideoUnderlay(std::unique_ptr<MovieFile> movie) : movie_(std::move(movie)) {}

  std::unique_ptr<MovieFile> movie_;
  std::shared_ptr<MovieTexture> texture_;
  // The host's billboard draws the frame; made with the first frame, in the context it draws to.
  std::unique_ptr<PatchHost> billboard_;
  std::int64_t shownTime_ = -1;
};

}  // namespace qva
