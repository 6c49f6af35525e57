#include "foundation/xpl/xplFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "framework/ProcessLog.h"

namespace qva {

namespace {

// Closes the descriptor on every way out.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) {
      ::close(fd_);
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

bool fail(std::string& bytes, std::string* error, const std::string& reason) {
  bytes.clear();
  if (error != nullptr) {
    *error = reason;
  }
  return false;
}

}  // namespace

bool xpl_read_file(const std::string& path, std::string& bytes, std::string* error, std::size_t limit) {
  bytes.clear();
  // Without O_NONBLOCK, opening a FIFO waits for a writer, possibly forever.
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (file.get() < 0) {
    return fail(bytes, error, path + ": " + std::strerror(errno));
  }
  struct stat info {};
  if (::fstat(file.get(), &info) != 0) {
    return fail(bytes, error, path + ": " + std::strerror(errno));
  }
  if (!S_ISREG(info.st_mode)) {
    return fail(bytes, error, path + " is not a regular file");
  }
  const std::string tooLarge =
      path + " is larger than " + std::to_string(limit) + " bytes, the most read whole";
  // The size is only a hint: the file may grow or shrink while it is read.
  if (static_cast<std::size_t>(info.st_size) > limit) {
    ProcessLog::write(tooLarge);
    return fail(bytes, error, tooLarge);
  }
  bytes.reserve(static_cast<std::size_t>(info.st_size));
  char chunk[65536];
  for (;;) {
    const ssize_t count = ::read(file.get(), chunk, sizeof chunk);
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      return fail(bytes, error, path + ": " + std::strerror(errno));
    }
    if (count == 0) {
      return true;
    }
    if (bytes.size() + static_cast<std::size_t>(count) > limit) {
      ProcessLog::write(tooLarge);
      return fail(bytes, error, tooLarge);
    }
    bytes.append(chunk, static_cast<std::size_t>(count));
  }
}

}  // namespace qva
