#include "host/FramePool.h"

namespace qva {

namespace {

// Spare frames kept at most; more than the outputs' queues hold together is rarely needed.
constexpr std::size_t kMaxSpare = 24;

}  // namespace

FramePool::FramePool(int width, int height)
    : width_(width), height_(height), shelf_(std::make_shared<Shelf>()) {}

std::shared_ptr<Bitmap> FramePool::take() {
  std::optional<Bitmap> frame;
  {
    std::lock_guard lock(shelf_->mutex);
    if (!shelf_->spare.empty()) {
      frame = std::move(shelf_->spare.back());
      shelf_->spare.pop_back();
    }
  }
  if (!frame) {
    frame = Bitmap::allocate(width_, height_, static_cast<std::size_t>(width_) * 4);
    if (!frame) {
      return nullptr;
    }
  }
  return std::shared_ptr<Bitmap>(new Bitmap(std::move(*frame)), [shelf = shelf_](Bitmap* used) {
    {
      std::lock_guard lock(shelf->mutex);
      if (shelf->spare.size() < kMaxSpare) {
        shelf->spare.push_back(std::move(*used));
      }
    }
    delete used;
  });
}

}  // namespace qva
