#include "host/PreviewOutput.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "host/PreviewWindow.h"

namespace qva {

namespace {

constexpr int kMaxWidth = 1280;
constexpr int kMaxHeight = 720;
// How often the window's events are handled while no frame comes.
constexpr std::chrono::milliseconds kEventInterval(50);
// How long the preview waits for the GPU to finish a copy before giving up on the frame.
constexpr GLuint64 kCopyTimeoutNanoseconds = 1'000'000'000;

}  // namespace

PreviewOutput::PreviewOutput(int width, int height) : width_(width), height_(height) {}

PreviewOutput::Creation PreviewOutput::open(GLContext& host, int width, int height) {
  if (!(epoxy_gl_version() >= 43 || epoxy_has_gl_extension("GL_ARB_copy_image")) ||
      !(epoxy_gl_version() >= 32 || epoxy_has_gl_extension("GL_ARB_sync"))) {
    return {nullptr,
            "the GL driver cannot copy textures with fences (OpenGL 4.3, or ARB_copy_image and "
            "ARB_sync)"};
  }
  auto output = std::unique_ptr<PreviewOutput>(new PreviewOutput(width, height));
  if (!output->makeTextures()) {
    return {nullptr, "cannot make the preview's textures"};
  }
  const double scale =
      std::min({1.0, static_cast<double>(kMaxWidth) / width, static_cast<double>(kMaxHeight) / height});
  const int windowWidth = std::max(1, static_cast<int>(width * scale));
  const int windowHeight = std::max(1, static_cast<int>(height * scale));
  std::promise<std::string> opened;
  std::future<std::string> answer = opened.get_future();
  PreviewOutput& running = *output;
  output->thread_ = std::thread([&running, &host, windowWidth, windowHeight, &opened] {
    running.run(host, windowWidth, windowHeight, opened);
  });
  if (std::string error = answer.get(); !error.empty()) {
    return {nullptr, error};
  }
  return {std::move(output), {}};
}

PreviewOutput::~PreviewOutput() {
  stopThread();
  for (void* fence : fences_) {
    if (fence != nullptr) {
      glDeleteSync(static_cast<GLsync>(fence));
    }
  }
  glDeleteTextures(static_cast<GLsizei>(textures_.size()), textures_.data());
}

bool PreviewOutput::makeTextures() {
  GLint previous = 0;
  glGetIntegerv(GL_TEXTURE_BINDING_2D, &previous);
  GLContext::takeError();
  glGenTextures(static_cast<GLsizei>(textures_.size()), textures_.data());
  for (std::size_t index = 0; index < textures_.size(); ++index) {
    glBindTexture(GL_TEXTURE_2D, textures_[index]);
    // Of the canvas's format, which copying needs.
    GLContext::specifyTexture(GL_TEXTURE_2D, width_, height_, nullptr);
    GLContext::resetSampling({textures_[index], TextureTarget::Texture2D, width_, height_, false});
    free_.push_back(index);
  }
  glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(previous));
  return GLContext::takeError() == 0;
}

void PreviewOutput::run(const GLContext& host, int windowWidth, int windowHeight,
                        std::promise<std::string>& opened) {
  lowerThreadPriority();
  PreviewWindow::Creation creation = PreviewWindow::open(host, windowWidth, windowHeight);
  opened.set_value(creation.error);
  if (creation.window) {
    show(*creation.window);
  }
}

void PreviewOutput::show(PreviewWindow& window) {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait_for(lock, kEventInterval, [this] { return waiting_ || closing_; });
    const std::optional<std::size_t> taken = std::exchange(waiting_, std::nullopt);
    if (!taken && closing_) {
      return;
    }
    lock.unlock();
    std::string error;
    if (window.closed()) {
      error = "the preview window was closed";
    } else if (taken) {
      auto& fence = fences_[*taken];
      const GLenum copied =
          glClientWaitSync(static_cast<GLsync>(fence), GL_SYNC_FLUSH_COMMANDS_BIT, kCopyTimeoutNanoseconds);
      glDeleteSync(static_cast<GLsync>(fence));
      error = copied == GL_ALREADY_SIGNALED || copied == GL_CONDITION_SATISFIED
                  ? window.show(textures_[*taken], width_, height_)
                  : "the GPU did not copy a frame for the preview window in time";
      // The next copy into the texture waits until it has been drawn.
      fence = glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
      glFlush();
    }
    lock.lock();
    if (taken) {
      free_.push_back(*taken);
    }
    if (!error.empty()) {
      error_ = std::move(error);
      return;
    }
    shown_ += taken ? 1 : 0;
  }
}

void PreviewOutput::offerCanvas(const TextureView& canvas) {
  std::size_t index = 0;
  {
    std::lock_guard lock(mutex_);
    if (!error_.empty() || closing_) {
      return;
    }
    // Never empty: of the textures, the preview's thread holds one at most and one waits at most.
    index = free_.back();
    free_.pop_back();
  }
  if (void* drawn = fences_[index]) {
    glWaitSync(static_cast<GLsync>(drawn), 0, GL_TIMEOUT_IGNORED);
    glDeleteSync(static_cast<GLsync>(drawn));
  }
  glCopyImageSubData(canvas.name, GLContext::glTarget(canvas.target), 0, 0, 0, 0, textures_[index],
                     GL_TEXTURE_2D, 0, 0, 0, 0, width_, height_, 1);
  fences_[index] = glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
  // Another context waits for the fence: it must reach the GPU.
  glFlush();
  {
    std::lock_guard lock(mutex_);
    if (waiting_) {
      free_.push_back(*waiting_);
      ++dropped_;
    }
    waiting_ = index;
  }
  changed_.notify_all();
}

std::string PreviewOutput::finish() {
  stopThread();
  std::lock_guard lock(mutex_);
  return error_;
}

void PreviewOutput::stopThread() {
  {
    std::lock_guard lock(mutex_);
    closing_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) {
    thread_.join();
  }
}

long long PreviewOutput::written() const {
  std::lock_guard lock(mutex_);
  return shown_;
}

long long PreviewOutput::dropped() const {
  std::lock_guard lock(mutex_);
  return dropped_;
}

std::string PreviewOutput::error() const {
  std::lock_guard lock(mutex_);
  return error_;
}

}  // namespace qva
