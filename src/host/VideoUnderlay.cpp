#include "host/VideoUnderlay.h"

#include <cmath>

#include "host/HostBillboard.h"

namespace qva {

VideoUnderlay::Opening VideoUnderlay::open(const std::string& path) {
  MovieFile::Opening opening = MovieFile::open(path, MovieLoadMode::PrerollOnly, 0);
  if (!opening.movie) {
    return {nullptr, path + ": " + opening.error};
  }
  return {std::unique_ptr<VideoUnderlay>(new VideoUnderlay(std::move(opening.movie))), {}};
}

void VideoUnderlay::draw(ExecutionContext& context, double time) {
  if (!billboard_) {
    billboard_ = std::make_unique<PatchHost>(std::make_unique<HostBillboard>(), context);
    billboard_->patch().setInputValue("inputWidth", Value(2.0));
    billboard_->start();
    billboard_->enable();
  }
  // Rounded to the movie's clock, so that output frames at the movie's rate meet its frames exactly.
  const std::int64_t movieTime = std::llround(time * movie_->timeScale());
  const MovieFrame* frame = movie_->frameForTime(movieTime);
  if (frame != nullptr && frame->time != shownTime_) {
    // The billboard lets go of the frame before, so that its texture can be refilled.
    billboard_->patch().setInputValue("inputImage", Value());
    texture_ = MovieTexture::holding(*frame, texture_);
    if (texture_) {
      const std::shared_ptr<MovieTexture> keep = texture_;
      billboard_->patch().setInputValue(
          "inputImage",
          Value(ImageRef(std::make_shared<TextureImage>(texture_->view(), [keep](const TextureView&) {}))));
      shownTime_ = frame->time;
    }
  }
  billboard_->runFrame(time, Arguments());
}

}  // namespace qva
