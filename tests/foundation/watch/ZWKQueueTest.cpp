#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "foundation/dispatch/TaskQueue.h"
#include "foundation/watch/ZWFileWatcherDelegate.h"
#include "foundation/watch/ZWKQueue.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

using namespace std::chrono_literals;
using Notifications = std::vector<std::pair<std::string, std::string>>;

class RecordingDelegate : public ZWFileWatcherDelegate {
 public:
  void watcher(ZWKQueue&, const std::string& notification, const std::string& path) override {
    EXPECT_EQ(std::this_thread::get_id(), hostThread);
    received.emplace_back(notification, path);
  }

  std::thread::id hostThread = std::this_thread::get_id();
  Notifications received;
};

class ZWKQueueTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(folder_ / "watched dir ü" / "sub");
    write("file.txt", "start");
    queue_ = ZWKQueue::create(tasks_);
    ASSERT_NE(queue_, nullptr);
    queue_->setDelegate(&delegate_);
  }
  void TearDown() override { queue_.reset(); }

  std::string path(const std::string& name) const { return (folder_ / name).string(); }
  void write(const std::string& name, const std::string& text, std::ios::openmode mode = std::ios::trunc) {
    std::ofstream(folder_ / name, std::ios::binary | mode) << text;
  }
  // Pumps the host queue until the delegate has received count notifications (or a generous time has
  // passed), then a little longer to catch any surplus, and hands them over.
  Notifications collect(std::size_t count) {
    tasks_.pumpUntil(10s, [&] { return delegate_.received.size() >= count; });
    tasks_.pumpFor(20ms);
    return std::exchange(delegate_.received, {});
  }

  TaskQueue tasks_;
  RecordingDelegate delegate_;
  std::unique_ptr<ZWKQueue> queue_;
  TemporaryFolder folder_{"kqueue"};
};

constexpr std::uint32_t kAllChanges = ZWKQueueDelete | ZWKQueueWrite | ZWKQueueExtend |
                                      ZWKQueueAttributeChange | ZWKQueueLink | ZWKQueueRename |
                                      ZWKQueueRevoke;

TEST_F(ZWKQueueTest, ReportsEachKindOfChangeToAFileInOrder) {
  const std::string file = path("file.txt");
  queue_->addPathToQueue(file, kAllChanges);
  write("file.txt", "+more", std::ios::app);
  EXPECT_EQ(collect(2), (Notifications{{ZWFileWatcherWriteNotification, file},
                                       {ZWFileWatcherSizeIncreaseNotification, file}}));
  ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
  EXPECT_EQ(collect(1), (Notifications{{ZWFileWatcherAttributeChangeNotification, file}}));
  ASSERT_EQ(::link(file.c_str(), path("second link").c_str()), 0);
  EXPECT_EQ(collect(2), (Notifications{{ZWFileWatcherAttributeChangeNotification, file},
                                       {ZWFileWatcherLinkCountChangeNotification, file}}));
  std::filesystem::rename(file, path("moved.txt"));
  EXPECT_EQ(collect(1), (Notifications{{ZWFileWatcherRenameNotification, file}}));
  // Still the same file under its new name, reported under the name it was added with.
  write("moved.txt", "x", std::ios::app);
  EXPECT_EQ(collect(2), (Notifications{{ZWFileWatcherWriteNotification, file},
                                       {ZWFileWatcherSizeIncreaseNotification, file}}));
  std::filesystem::remove(path("second link"));
  EXPECT_EQ(collect(2), (Notifications{{ZWFileWatcherAttributeChangeNotification, file},
                                       {ZWFileWatcherLinkCountChangeNotification, file}}));
  std::filesystem::remove(path("moved.txt"));
  EXPECT_EQ(collect(2), (Notifications{{ZWFileWatcherDeleteNotification, file},
                                       {ZWFileWatcherAttributeChangeNotification, file}}));
}

TEST_F(ZWKQueueTest, DefaultMaskLeavesOutGrowthAndLinksAndSeesReplacement) {
  const std::string file = path("file.txt");
  queue_->addPath(file);
  write("file.txt", "+more", std::ios::app);
  EXPECT_EQ(collect(1), (Notifications{{ZWFileWatcherWriteNotification, file}}));
  // Saved the safe way: a new file renamed over the old one, which goes away.
  write("file.txt.new", "replacement");
  std::filesystem::rename(path("file.txt.new"), file);
  EXPECT_EQ(collect(2), (Notifications{{ZWFileWatcherDeleteNotification, file},
                                       {ZWFileWatcherAttributeChangeNotification, file}}));
}

TEST_F(ZWKQueueTest, FolderWatchReportsItsOwnEntriesOnly) {
  const std::string folder = path("watched dir ü");
  queue_->addPathToQueue(folder, kAllChanges);
  write("watched dir ü/new.txt", "a");
  EXPECT_EQ(collect(1), (Notifications{{ZWFileWatcherWriteNotification, folder}}));
  // Changes inside an entry or a subfolder are not the folder's.
  write("watched dir ü/new.txt", "more", std::ios::app);
  write("watched dir ü/sub/deep.txt", "b");
  std::filesystem::rename(folder_ / "watched dir ü" / "new.txt", folder_ / "watched dir ü" / "renamed.txt");
  EXPECT_EQ(collect(2), (Notifications{{ZWFileWatcherWriteNotification, folder},
                                       {ZWFileWatcherWriteNotification, folder}}));
  std::filesystem::create_directory(folder_ / "watched dir ü" / "sub2");
  EXPECT_EQ(collect(2), (Notifications{{ZWFileWatcherWriteNotification, folder},
                                       {ZWFileWatcherLinkCountChangeNotification, folder}}));
  // Its entries go first, each a change of the folder, then the folder itself.
  std::filesystem::remove_all(folder_ / "watched dir ü");
  const std::pair<std::string, std::string> deleted{ZWFileWatcherDeleteNotification, folder};
  EXPECT_TRUE(tasks_.pumpUntil(10s, [&] {
    return std::find(delegate_.received.begin(), delegate_.received.end(), deleted) !=
           delegate_.received.end();
  }));
}

TEST_F(ZWKQueueTest, PathsAddedTwiceAreReportedTwiceUntilRemoved) {
  const std::string file = path("file.txt");
  queue_->addPath(file);
  queue_->addPath(file);
  queue_->addPath(path("does not exist"));  // ignored
  write("file.txt", "1", std::ios::app);
  EXPECT_EQ(collect(2),
            (Notifications{{ZWFileWatcherWriteNotification, file}, {ZWFileWatcherWriteNotification, file}}));
  queue_->removePathFromQueue(file);
  queue_->removePathFromQueue(path("never added"));
  write("file.txt", "2", std::ios::app);
  EXPECT_EQ(collect(1), (Notifications{{ZWFileWatcherWriteNotification, file}}));

  queue_->removeAllPathsFromQueue();
  queue_->addPath(path("watched dir ü"));
  write("file.txt", "3", std::ios::app);
  write("watched dir ü/marker", "m");
  EXPECT_EQ(collect(1), (Notifications{{ZWFileWatcherWriteNotification, path("watched dir ü")}}));
}

TEST_F(ZWKQueueTest, DestroyingTheQueueDoesNotWaitForAHostThatNeverPumps) {
  queue_->addPath(path("file.txt"));
  write("file.txt", "unseen", std::ios::app);
  // Give the watcher thread time to hand the event over; the host never runs it.
  std::this_thread::sleep_for(50ms);
  queue_.reset();
  tasks_.pump();  // the stale delivery finds no delegate
  EXPECT_TRUE(delegate_.received.empty());
}

}  // namespace
}  // namespace qva
