#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "host/LiveOutput.h"
#include "support/BlockingOutput.h"

namespace qva {
namespace {

std::shared_ptr<const Bitmap> frameMarked(int mark) {
  auto frame = Bitmap::allocate(4, 2, 16);
  frame->bytes()[0] = static_cast<std::uint8_t>(mark);
  return std::make_shared<const Bitmap>(std::move(*frame));
}

void waitFor(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

TEST(LiveOutputTest, BlockedOutputDropsWhatItsQueueCannotHoldAndWritesTheRestInOrder) {
  BlockingOutput::Record record;
  record.hold();
  LiveOutput output(std::make_unique<BlockingOutput>(record), 3);
  output.offer(frameMarked(0));
  // The first frame is with the output, held there; three more wait.
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  for (int mark = 1; mark < 50; ++mark) {
    output.offer(frameMarked(mark));
  }
  const long long dropped = output.dropped();
  EXPECT_GE(dropped, 46);
  EXPECT_LE(dropped, 47);
  record.release();
  EXPECT_EQ(output.finish(), "");
  EXPECT_TRUE(record.finished);
  EXPECT_EQ(output.written() + dropped, 50);
  ASSERT_EQ(record.firstBytes.size(), static_cast<std::size_t>(50 - dropped));
  // What was kept went out in the order given, the earliest first, each at its own time: the output was
  // told of the frames dropped before it.
  EXPECT_EQ(record.firstBytes[0], 0);
  EXPECT_EQ(record.firstBytes[1], 1);
  EXPECT_TRUE(std::is_sorted(record.firstBytes.begin(), record.firstBytes.end()));
  EXPECT_EQ(record.times, std::vector<long long>(record.firstBytes.begin(), record.firstBytes.end()));
}

TEST(LiveOutputTest, FailedOutputKeepsItsErrorAndTakesNoMoreFrames) {
  BlockingOutput::Record record;
  record.failFrom = 2;
  LiveOutput output(std::make_unique<BlockingOutput>(record));
  for (int mark = 0; mark < 3; ++mark) {
    output.offer(frameMarked(mark));
  }
  waitFor([&] { return output.failed(); });
  EXPECT_EQ(output.error(), "the test output failed");
  output.offer(frameMarked(9));
  EXPECT_EQ(output.finish(), "the test output failed");
  // A failed output is not completed as though all had gone well.
  EXPECT_FALSE(record.finished);
  EXPECT_EQ(output.written(), 2);
  EXPECT_EQ(record.firstBytes, (std::vector<int>{0, 1}));
}

TEST(LiveOutputTest, FinishReportsTheInnerOutputsError) {
  BlockingOutput::Record record;
  record.finishError = "disk full";
  LiveOutput output(std::make_unique<BlockingOutput>(record));
  output.offer(frameMarked(1));
  EXPECT_EQ(output.finish(), "disk full");
  EXPECT_EQ(record.count(), 1u);
}

}  // namespace
}  // namespace qva
