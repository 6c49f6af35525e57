#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <limits>

#include "foundation/dispatch/TaskQueue.h"
#include "patches/files/QVAPathWatcherPlugIn.h"
#include "support/PatchExecution.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

using namespace std::chrono_literals;

class PathWatcherTest : public ::testing::Test {
 protected:
  PathWatcherTest() : context_(queue_) {}

  void SetUp() override {
    std::filesystem::create_directories(folder_ / "drop folder");
    std::ofstream(folder_ / "data é.xml") << "<a/>";
    context_.setCompositionPath((folder_ / "show.qvc").string());
    ASSERT_TRUE(patch_->startExecution(context_));
    patch_->enableExecution(context_);
  }
  void TearDown() override {
    patch_->disableExecution(context_);
    patch_->stopExecution(context_);
    patch_.reset();
  }

  bool run() {
    executeOnce(*patch_, context_, 1);
    return patch_->findOutputPort("outputUpdateSignal")->value.booleanValue();
  }
  bool wantsToRun() { return patch_->executionTimeForContext(context_, 1, Arguments()) == 1; }
  // Pumps the host queue until the patch asks to run, for at most the limit.
  bool waitForChange(std::chrono::milliseconds limit = 10000ms) {
    return queue_.pumpUntil(limit, [this] { return wantsToRun(); });
  }
  // A change seen gives one execution with the signal up, and the next one has it down again.
  void expectOnePulse() {
    ASSERT_TRUE(waitForChange());
    EXPECT_TRUE(run());
    EXPECT_FALSE(run());
  }
  void write(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
  }

  TaskQueue queue_;
  ExecutionContext context_;
  std::unique_ptr<QVAPathWatcherPlugIn> patch_ = std::make_unique<QVAPathWatcherPlugIn>();
  TemporaryFolder folder_{"pathwatcher"};
};

TEST_F(PathWatcherTest, EachChangeGivesAOneExecutionPulse) {
  patch_->setInputValue("inputPath", Value("data é.xml"));
  EXPECT_FALSE(run());
  EXPECT_FALSE(wantsToRun());
  write(folder_ / "data é.xml", "<b/>");
  ASSERT_TRUE(waitForChange());
  write(folder_ / "data é.xml", "<c/>");  // a second change before the next execution
  queue_.pumpFor(20ms);
  EXPECT_TRUE(run());
  EXPECT_TRUE(wantsToRun());
  EXPECT_FALSE(run());
  EXPECT_FALSE(wantsToRun());
}

TEST_F(PathWatcherTest, FollowsAFileReplacedByRenameAndOneCreatedLater) {
  patch_->setInputValue("inputPath", Value((folder_ / "data é.xml").string()));
  run();
  write(folder_ / "data é.xml.tmp", "<new/>");
  std::filesystem::rename(folder_ / "data é.xml.tmp", folder_ / "data é.xml");
  expectOnePulse();
  write(folder_ / "data é.xml", "<newer/>");  // the new file is watched now
  expectOnePulse();

  std::filesystem::remove(folder_ / "data é.xml");
  expectOnePulse();
  write(folder_ / "data é.xml", "<back/>");
  ASSERT_TRUE(waitForChange());
  EXPECT_TRUE(run());
}

TEST_F(PathWatcherTest, APathThatDoesNotExistYetPulsesWhenCreated) {
  patch_->setInputValue("inputPath", Value("later/file.txt"));
  EXPECT_FALSE(run());
  std::filesystem::create_directories(folder_ / "later");
  write(folder_ / "later" / "file.txt", "now");
  expectOnePulse();
}

TEST_F(PathWatcherTest, FolderWatchSeesEntriesComeAndGoAndStopsWithExecution) {
  patch_->setInputValue("inputPath", Value("drop folder"));
  run();
  write(folder_ / "drop folder" / "clip.mov", "x");
  expectOnePulse();
  std::filesystem::remove(folder_ / "drop folder" / "clip.mov");
  expectOnePulse();

  patch_->disableExecution(context_);
  write(folder_ / "drop folder" / "unseen.mov", "x");
  EXPECT_FALSE(waitForChange(300ms));
}

TEST_F(PathWatcherTest, EmptyOrUnwatchablePathsNeverPulse) {
  patch_->setInputValue("inputPath", Value(""));
  EXPECT_FALSE(run());
  EXPECT_EQ(patch_->executionTimeForContext(context_, 1, Arguments()), std::numeric_limits<float>::max());
}

}  // namespace
}  // namespace qva
