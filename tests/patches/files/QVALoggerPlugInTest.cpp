#include <gtest/gtest.h>

#include <limits>

#include "foundation/dispatch/TaskQueue.h"
#include "framework/ProcessLog.h"
#include "patches/files/QVALoggerPlugIn.h"
#include "support/PatchExecution.h"

namespace qva {
namespace {

class LoggerTest : public ::testing::Test {
 protected:
  LoggerTest() : context_(queue_) {
    previous_ = ProcessLog::setSink([this](const std::string& line) { lines_.push_back(line); });
  }
  ~LoggerTest() override { ProcessLog::setSink(previous_); }

  void run(const std::string& prefix, const std::string& message) {
    patch_.setInputValue("inputPrefix", Value(prefix));
    patch_.setInputValue("inputMessage", Value(message));
    executeOnce(patch_, context_);
  }

  TaskQueue queue_;
  ExecutionContext context_;
  QVALoggerPlugIn patch_;
  ProcessLog::Sink previous_;
  std::vector<std::string> lines_;
};

TEST_F(LoggerTest, LogsWhenMessageOrPrefixChanges) {
  run("CG", "cue 3");
  run("CG", "cue 3");
  run("X", "cue 3");
  run("", "cue 4");
  run("X", "");
  EXPECT_EQ(lines_,
            (std::vector<std::string>{"CG cue 3", "X cue 3", "cue 4",
                                      "-[QVALoggerPlugIn execute:atTime:withArguments:] empty message"}));
}

TEST_F(LoggerTest, PrefixComesFirstAndTheMessagePortFollows) {
  ASSERT_EQ(patch_.inputPorts().size(), 2u);
  EXPECT_EQ(patch_.inputPorts()[0].description.key, "inputPrefix");
  EXPECT_EQ(patch_.inputPorts()[1].description.key, "inputMessage");
  EXPECT_TRUE(patch_.outputPorts().empty());
  patch_.updateInputChangeFlags();
  EXPECT_EQ(patch_.executionTimeForContext(context_, 2, Arguments()), 2);
  run("", "a");
  patch_.updateInputChangeFlags();
  EXPECT_EQ(patch_.executionTimeForContext(context_, 3, Arguments()), std::numeric_limits<float>::max());
}

}  // namespace
}  // namespace qva
