#include "foundation/media/MemoryMovieSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

namespace qva {

namespace {

// The chunk the demuxer asks for at a time.
constexpr int kIOBufferBytes = 64 * 1024;

}  // namespace

MemoryMovieSource::Opening MemoryMovieSource::open(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) {
    return {nullptr, std::strerror(errno)};
  }
  struct stat status {};
  if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(descriptor);
    return {nullptr, "not a regular file"};
  }
  const auto size = static_cast<std::size_t>(status.st_size);
  if (size > kMaximumBytes) {
    ::close(descriptor);
    return {nullptr,
            "the file's " + std::to_string(size >> 20) + " MiB are more than the " +
                std::to_string(kMaximumBytes >> 20) + " MiB a movie may take in memory",
            true};
  }
  // Not value-initialised: pages are touched only as the file is loaded.
  std::unique_ptr<std::uint8_t[]> bytes(new (std::nothrow) std::uint8_t[std::max<std::size_t>(size, 1)]);
  if (!bytes) {
    ::close(descriptor);
    return {nullptr, "out of memory for the movie", true};
  }
  std::unique_ptr<MemoryMovieSource> source(new MemoryMovieSource(descriptor, size, std::move(bytes)));
  auto* buffer = static_cast<std::uint8_t*>(av_malloc(kIOBufferBytes));
  source->io_ = buffer ? avio_alloc_context(buffer, kIOBufferBytes, 0, source.get(), &MemoryMovieSource::read,
                                            nullptr, &MemoryMovieSource::seek)
                       : nullptr;
  if (source->io_ == nullptr) {
    av_free(buffer);
    return {nullptr, "out of memory for the movie", true};
  }
  return {std::move(source), {}};
}

MemoryMovieSource::MemoryMovieSource(int descriptor, std::size_t size, std::unique_ptr<std::uint8_t[]> bytes)
    : descriptor_(descriptor), size_(size), bytes_(std::move(bytes)) {}

MemoryMovieSource::~MemoryMovieSource() {
  if (io_ != nullptr) {
    av_freep(&io_->buffer);
    avio_context_free(&io_);
  }
  ::close(descriptor_);
}

bool MemoryMovieSource::loadThrough(std::size_t end) {
  end = std::min(end, size_);
  std::size_t loaded = loaded_.load(std::memory_order_relaxed);
  while (loaded < end) {
    const ssize_t got = ::pread(descriptor_, bytes_.get() + loaded, end - loaded, static_cast<off_t>(loaded));
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return false;
    }
    loaded += static_cast<std::size_t>(got);
    loaded_.store(loaded, std::memory_order_release);
  }
  return true;
}

int MemoryMovieSource::read(void* opaque, std::uint8_t* buffer, int size) {
  auto& source = *static_cast<MemoryMovieSource*>(opaque);
  if (source.position_ >= source.size_) {
    return AVERROR_EOF;
  }
  const std::size_t wanted = std::min(static_cast<std::size_t>(size), source.size_ - source.position_);
  std::size_t copied = 0;
  if (const std::size_t loaded = source.loadedBytes(); source.position_ < loaded) {
    copied = std::min(wanted, loaded - source.position_);
    std::memcpy(buffer, source.bytes_.get() + source.position_, copied);
  } else {
    const ssize_t got = ::pread(source.descriptor_, buffer, wanted, static_cast<off_t>(source.position_));
    if (got <= 0) {
      return got == 0 ? AVERROR_EOF : AVERROR(errno);
    }
    copied = static_cast<std::size_t>(got);
  }
  source.position_ += copied;
  return static_cast<int>(copied);
}

std::int64_t MemoryMovieSource::seek(void* opaque, std::int64_t offset, int whence) {
  auto& source = *static_cast<MemoryMovieSource*>(opaque);
  std::int64_t target = 0;
  switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
      return static_cast<std::int64_t>(source.size_);
    case SEEK_SET:
      target = offset;
      break;
    case SEEK_CUR:
      target = static_cast<std::int64_t>(source.position_) + offset;
      break;
    case SEEK_END:
      target = static_cast<std::int64_t>(source.size_) + offset;
      break;
    default:
      return AVERROR(EINVAL);
  }
  if (target < 0) {
    return AVERROR(EINVAL);
  }
  source.position_ = static_cast<std::size_t>(target);
  return target;
}

}  // namespace qva
