#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qva {

class MainThreadQueue;
class ZWFileWatcherDelegate;

// Kinds of change, as bits of a watch mask.
enum ZWKQueueFlags : std::uint32_t {
  ZWKQueueDelete = 0x01,
  ZWKQueueWrite = 0x02,
  ZWKQueueExtend = 0x04,
  ZWKQueueAttributeChange = 0x08,
  ZWKQueueLink = 0x10,
  ZWKQueueRename = 0x20,
  ZWKQueueRevoke = 0x40,
};

inline constexpr char ZWFileWatcherRenameNotification[] = "ZWKQueueFileRenamedNotification";
inline constexpr char ZWFileWatcherWriteNotification[] = "ZWKQueueFileWrittenToNotification";
inline constexpr char ZWFileWatcherDeleteNotification[] = "ZWKQueueFileDeletedNotification";
inline constexpr char ZWFileWatcherAttributeChangeNotification[] =
    "ZWKQueueFileAttributesChangedNotification";
inline constexpr char ZWFileWatcherSizeIncreaseNotification[] = "ZWKQueueFileSizeIncreasedNotification";
inline constexpr char ZWFileWatcherLinkCountChangeNotification[] = "ZWKQueueFileLinkCountChangedNotification";
inline constexpr char ZWFileWatcherAccessRevocationNotification[] =
    "ZWKQueueFileAccessRevocationNotification";

// Watches files and folders for changes on a thread of its own (inotify) and hands every change to its
// delegate on the host thread, waiting until the delegate has seen it. A file watch follows the file
// itself (its inode), so a file renamed away is still watched; a folder watch reports entries added,
// removed or renamed in the folder, not in subfolders. Create, use and destroy it on the host thread.
class ZWKQueue {
 public:
  // The mask addPath asks for: delete, write, attribute change and rename.
  static constexpr std::uint32_t kDefaultMask =
      ZWKQueueDelete | ZWKQueueWrite | ZWKQueueAttributeChange | ZWKQueueRename;

  // None when the system cannot give a change queue (too many open, no inotify).
  static std::unique_ptr<ZWKQueue> create(MainThreadQueue& mainThreadQueue);
  ~ZWKQueue();
  ZWKQueue(const ZWKQueue&) = delete;
  ZWKQueue& operator=(const ZWKQueue&) = delete;

  void addPath(const std::string& path);
  // Watches the path for the kinds of change in the mask; a path that cannot be watched is ignored. The
  // same path added twice is watched, and reported, twice.
  void addPathToQueue(const std::string& path, std::uint32_t mask);
  // Stops the first watch of the path; an unknown path is ignored.
  void removePathFromQueue(const std::string& path);
  void removeAllPathsFromQueue();

  // The delegate is not owned; nullptr stops the deliveries.
  void setDelegate(ZWFileWatcherDelegate* delegate);

 private:
  struct Watch;
  struct Shared;

  ZWKQueue(MainThreadQueue& mainThreadQueue, int inotifyFD, int wakeFD);
  void watcherThread();
  void handleEvent(int wd, std::uint32_t events, bool aboutEntry);
  void postNotification(const char* notification, const std::string& path);
  void releaseWatchLocked(std::size_t index);

  MainThreadQueue& mainThreadQueue_;
  const int queueFD;
  const int wakeFD_;
  std::mutex lock_;
  std::vector<Watch> watches_;
  std::shared_ptr<Shared> shared_;
  std::thread thread_;
};

}  // namespace qva
