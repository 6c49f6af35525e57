#include "foundation/gl/AsyncReadback.h"

#include <epoxy/gl.h>

#include <algorithm>

namespace qva {

AsyncReadback::AsyncReadback(int width, int height, std::size_t depth)
    : width_(width), height_(height), buffers_(std::max<std::size_t>(depth, 2)) {
  const auto size = static_cast<GLsizeiptr>(width) * height * 4;
  glGenBuffers(static_cast<GLsizei>(buffers_.size()), buffers_.data());
  for (const unsigned buffer : buffers_) {
    glBindBuffer(GL_PIXEL_PACK_BUFFER, buffer);
    glBufferData(GL_PIXEL_PACK_BUFFER, size, nullptr, GL_STREAM_READ);
  }
  glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
}

AsyncReadback::~AsyncReadback() {
  glDeleteBuffers(static_cast<GLsizei>(buffers_.size()), buffers_.data());
}

void AsyncReadback::begin() {
  const unsigned buffer = buffers_[next_];
  next_ = (next_ + 1) % buffers_.size();
  glBindBuffer(GL_PIXEL_PACK_BUFFER, buffer);
  glPixelStorei(GL_PACK_ALIGNMENT, 4);
  glPixelStorei(GL_PACK_ROW_LENGTH, 0);
  // Into the bound buffer: the call returns once the read is queued.
  glReadPixels(0, 0, width_, height_, GL_BGRA, GL_UNSIGNED_INT_8_8_8_8_REV, nullptr);
  glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
  inFlight_.push_back(buffer);
}

bool AsyncReadback::collect(std::uint8_t* bytes, std::size_t rowBytes) {
  if (inFlight_.empty()) {
    return false;
  }
  const unsigned buffer = inFlight_.front();
  inFlight_.pop_front();
  const std::size_t rowLength = static_cast<std::size_t>(width_) * 4;
  glBindBuffer(GL_PIXEL_PACK_BUFFER, buffer);
  const auto* mapped = static_cast<const std::uint8_t*>(glMapBufferRange(
      GL_PIXEL_PACK_BUFFER, 0, static_cast<GLsizeiptr>(rowLength * height_), GL_MAP_READ_BIT));
  if (mapped != nullptr) {
    for (int y = 0; y < height_; ++y) {
      std::copy_n(mapped + rowLength * static_cast<std::size_t>(y), rowLength,
                  bytes + rowBytes * static_cast<std::size_t>(y));
    }
    glUnmapBuffer(GL_PIXEL_PACK_BUFFER);
  }
  glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
  return mapped != nullptr;
}

void AsyncReadback::discard() {
  if (!inFlight_.empty()) {
    inFlight_.pop_front();
  }
}

}  // namespace qva
