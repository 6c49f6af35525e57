#include "foundation/watch/ZWKQueue.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <utility>

#include "foundation/watch/ZWFileWatcherDelegate.h"
#include "framework/MainThreadQueue.h"
#include "framework/ProcessLog.h"
#include "framework/StringFormat.h"

namespace qva {

namespace {

// Everything a watch may need to report; each watch filters by its own mask.
constexpr std::uint32_t kInotifyMask = IN_MODIFY | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_CREATE |
                                       IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
constexpr std::uint32_t kEntryChanges = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;

// Notifications go out in this order when one event carries several kinds of change.
constexpr std::pair<std::uint32_t, const char*> kNotifications[] = {
    {ZWKQueueRename, ZWFileWatcherRenameNotification},
    {ZWKQueueWrite, ZWFileWatcherWriteNotification},
    {ZWKQueueDelete, ZWFileWatcherDeleteNotification},
    {ZWKQueueAttributeChange, ZWFileWatcherAttributeChangeNotification},
    {ZWKQueueExtend, ZWFileWatcherSizeIncreaseNotification},
    {ZWKQueueLink, ZWFileWatcherLinkCountChangeNotification},
    {ZWKQueueRevoke, ZWFileWatcherAccessRevocationNotification},
};

}  // namespace

struct ZWKQueue::Watch {
  std::string path;
  // A file's descriptor for the file itself (no access to its contents): it tells the file's size and
  // link count wherever it moves, and that it was deleted, even when the name leads elsewhere by then.
  // Folders keep none, so that their removal ends the kernel watch at once.
  int fd = -1;
  int wd = -1;
  std::uint32_t mask = 0;
  bool isDirectory = false;
  off_t size = 0;
  nlink_t links = 0;
  bool deleted = false;
};

// What the watcher thread and the tasks it posts share with the queue, which may be gone when a posted
// task finally runs.
struct ZWKQueue::Shared {
  std::mutex mutex;
  std::condition_variable delivered;
  ZWFileWatcherDelegate* delegate = nullptr;
  bool stopping = false;
};

std::unique_ptr<ZWKQueue> ZWKQueue::create(MainThreadQueue& mainThreadQueue) {
  const int queueFD = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (queueFD < 0) {
    return nullptr;
  }
  const int wakeFD = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (wakeFD < 0) {
    ::close(queueFD);
    return nullptr;
  }
  return std::unique_ptr<ZWKQueue>(new ZWKQueue(mainThreadQueue, queueFD, wakeFD));
}

ZWKQueue::ZWKQueue(MainThreadQueue& mainThreadQueue, int inotifyFD, int wakeFD)
    : mainThreadQueue_(mainThreadQueue),
      queueFD(inotifyFD),
      wakeFD_(wakeFD),
      shared_(std::make_shared<Shared>()),
      thread_([this] { watcherThread(); }) {}

ZWKQueue::~ZWKQueue() {
  {
    std::lock_guard lock(shared_->mutex);
    shared_->stopping = true;
    shared_->delegate = nullptr;
  }
  shared_->delivered.notify_all();
  const std::uint64_t wake = 1;
  if (::write(wakeFD_, &wake, sizeof wake) < 0) {
    ProcessLog::write(formatString("dealloc: Couldn't wake the watcher thread (%d)", errno));
  }
  thread_.join();
  for (const Watch& watch : watches_) {
    if (watch.fd >= 0 && ::close(watch.fd) != 0) {
      ProcessLog::write(formatString("dealloc: Couldn't close file descriptor (%d)", errno));
    }
  }
  // Closing the queue ends every kernel watch.
  if (::close(queueFD) != 0) {
    ProcessLog::write(formatString("release: Couldn't close main kqueue (%d)", errno));
  }
  ::close(wakeFD_);
}

void ZWKQueue::addPath(const std::string& path) {
  addPathToQueue(path, kDefaultMask);
}

void ZWKQueue::addPathToQueue(const std::string& path, std::uint32_t mask) {
  const int fd = ::open(path.c_str(), O_PATH | O_CLOEXEC);
  if (fd < 0) {
    return;
  }
  struct stat info {};
  const int wd = ::fstat(fd, &info) == 0 ? ::inotify_add_watch(queueFD, path.c_str(), kInotifyMask) : -1;
  if (wd < 0) {
    ::close(fd);
    return;
  }
  Watch watch;
  watch.path = path;
  watch.fd = fd;
  watch.wd = wd;
  watch.mask = mask;
  watch.isDirectory = S_ISDIR(info.st_mode);
  if (watch.isDirectory) {
    ::close(fd);
    watch.fd = -1;
  }
  watch.size = info.st_size;
  watch.links = info.st_nlink;
  std::lock_guard lock(lock_);
  watches_.push_back(std::move(watch));
}

void ZWKQueue::removePathFromQueue(const std::string& path) {
  std::lock_guard lock(lock_);
  const auto found =
      std::find_if(watches_.begin(), watches_.end(), [&](const Watch& w) { return w.path == path; });
  if (found != watches_.end()) {
    releaseWatchLocked(static_cast<std::size_t>(found - watches_.begin()));
  }
}

void ZWKQueue::removeAllPathsFromQueue() {
  std::lock_guard lock(lock_);
  while (!watches_.empty()) {
    releaseWatchLocked(watches_.size() - 1);
  }
}

void ZWKQueue::releaseWatchLocked(std::size_t index) {
  const int wd = watches_[index].wd;
  const int fd = watches_[index].fd;
  watches_.erase(watches_.begin() + static_cast<std::ptrdiff_t>(index));
  // One kernel watch serves every entry of the same file and ends with the last of them; EINVAL means
  // the kernel ended it already.
  const bool shared =
      std::any_of(watches_.begin(), watches_.end(), [wd](const Watch& w) { return w.wd == wd; });
  if (!shared) {
    ::inotify_rm_watch(queueFD, wd);
  }
  if (fd >= 0 && ::close(fd) != 0) {
    ProcessLog::write(formatString("removePathFromQueue: Couldn't close file descriptor (%d)", errno));
  }
}

void ZWKQueue::setDelegate(ZWFileWatcherDelegate* delegate) {
  std::lock_guard lock(shared_->mutex);
  shared_->delegate = delegate;
}

void ZWKQueue::watcherThread() {
  alignas(inotify_event) char buffer[64 * 1024];
  for (;;) {
    pollfd descriptors[2] = {{queueFD, POLLIN, 0}, {wakeFD_, POLLIN, 0}};
    if (::poll(descriptors, 2, -1) < 0) {
      if (errno == EINTR) {
        continue;
      }
      ProcessLog::write(formatString("Error in ZWKQueue watcherThread: poll failed (%d)", errno));
      return;
    }
    if (descriptors[1].revents != 0) {
      return;
    }
    const ssize_t count = ::read(queueFD, buffer, sizeof buffer);
    for (ssize_t offset = 0; count > 0 && offset + static_cast<ssize_t>(sizeof(inotify_event)) <= count;) {
      inotify_event event{};
      std::memcpy(&event, buffer + offset, sizeof event);
      offset += static_cast<ssize_t>(sizeof event + event.len);
      try {
        handleEvent(event.wd, event.mask, event.len > 0);
      } catch (const std::exception& error) {
        ProcessLog::write(formatString("Error in ZWKQueue watcherThread: %s", error.what()));
      }
    }
  }
}

void ZWKQueue::handleEvent(int wd, std::uint32_t events, bool aboutEntry) {
  std::vector<std::pair<std::string, std::uint32_t>> deliveries;
  {
    std::lock_guard lock(lock_);
    for (Watch& watch : watches_) {
      // Lost events (a full kernel queue) count as a write to every watch.
      if ((events & IN_Q_OVERFLOW) != 0) {
        deliveries.emplace_back(watch.path, ZWKQueueWrite & watch.mask);
        continue;
      }
      if (watch.wd != wd) {
        continue;
      }
      std::uint32_t flags = 0;
      if (aboutEntry) {
        // Only a folder hears of its entries; of those, only entries coming and going change the folder.
        if (watch.isDirectory && (events & kEntryChanges) != 0) {
          flags |= ZWKQueueWrite;
          if ((events & IN_ISDIR) != 0) {
            flags |= ZWKQueueLink;
          }
        }
      } else {
        struct stat info {};
        const bool known = watch.fd >= 0 && ::fstat(watch.fd, &info) == 0;
        if ((events & IN_MODIFY) != 0) {
          flags |= ZWKQueueWrite;
          if (known && info.st_size > watch.size) {
            flags |= ZWKQueueExtend;
          }
        }
        if ((events & IN_ATTRIB) != 0) {
          flags |= ZWKQueueAttributeChange;
          if (known && info.st_nlink == 0) {
            flags |= ZWKQueueDelete;
          } else if (known && info.st_nlink != watch.links) {
            flags |= ZWKQueueLink;
          }
        }
        if ((events & IN_DELETE_SELF) != 0) {
          flags |= ZWKQueueDelete;
        }
        if ((events & IN_MOVE_SELF) != 0) {
          flags |= ZWKQueueRename;
        }
        if ((events & IN_UNMOUNT) != 0) {
          flags |= ZWKQueueRevoke;
        }
        if (known) {
          watch.size = info.st_size;
          watch.links = info.st_nlink;
        }
      }
      if (watch.deleted) {
        flags &= ~static_cast<std::uint32_t>(ZWKQueueDelete);
      }
      watch.deleted = watch.deleted || (flags & ZWKQueueDelete) != 0;
      if ((flags & watch.mask) != 0) {
        deliveries.emplace_back(watch.path, flags & watch.mask);
      }
    }
  }
  for (const auto& [path, flags] : deliveries) {
    for (const auto& [flag, notification] : kNotifications) {
      if ((flags & flag) != 0) {
        postNotification(notification, path);
      }
    }
  }
}

void ZWKQueue::postNotification(const char* notification, const std::string& path) {
  const std::shared_ptr<Shared> shared = shared_;
  {
    std::lock_guard lock(shared->mutex);
    if (shared->stopping || shared->delegate == nullptr) {
      return;
    }
  }
  // The queue is destroyed on the host thread, so while it is not stopping it outlives this task.
  auto done = std::make_shared<bool>(false);
  mainThreadQueue_.post([this, shared, done, notification, path] {
    ZWFileWatcherDelegate* delegate = nullptr;
    {
      std::lock_guard lock(shared->mutex);
      delegate = shared->stopping ? nullptr : shared->delegate;
    }
    if (delegate != nullptr) {
      delegate->watcher(*this, notification, path);
    }
    {
      std::lock_guard lock(shared->mutex);
      *done = true;
    }
    shared->delivered.notify_all();
  });
  std::unique_lock lock(shared->mutex);
  shared->delivered.wait(lock, [&] { return *done || shared->stopping; });
}

}  // namespace qva
