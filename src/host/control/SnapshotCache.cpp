#include "host/control/SnapshotCache.h"

#include <algorithm>
#include <cmath>

#include "foundation/image/Bitmap.h"
#include "foundation/image/PngWriter.h"

namespace qva {

std::shared_ptr<const std::string> SnapshotCache::png() {
  std::lock_guard lock(mutex_);
  const auto now = std::chrono::steady_clock::now();
  if (encoded_ && !encoded_->empty() && now - madeAt_ < minimumInterval) {
    return encoded_;
  }
  const std::shared_ptr<const Bitmap> frame = playout_.latestFrame();
  if (!frame || frame->width() <= 0 || frame->height() <= 0) {
    return std::make_shared<const std::string>();
  }
  // Shrink to fit the thumbnail box, keeping the frame's shape; never enlarge.
  const double scale = std::min({1.0, static_cast<double>(maximumWidth) / frame->width(),
                                 static_cast<double>(maximumHeight) / frame->height()});
  const int width = std::max(1, static_cast<int>(std::lround(frame->width() * scale)));
  const int height = std::max(1, static_cast<int>(std::lround(frame->height() * scale)));
  const std::optional<Bitmap> thumbnail = Bitmap::scaled(frame->view(), width, height);
  if (!thumbnail) {
    return std::make_shared<const std::string>();
  }
  encoded_ = std::make_shared<const std::string>(PngWriter::encode(thumbnail->view()));
  madeAt_ = now;
  return encoded_;
}

}  // namespace qva
