#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "foundation/dispatch/TaskQueue.h"
#include "framework/ExecutionContext.h"
#include "framework/Patch.h"

namespace qva {

// One execution as a host runs it: change flags first, execute (which must succeed), then the inputs
// are recorded for the next change test.
inline void executeOnce(Patch& patch, ExecutionContext& context, double time = 0) {
  patch.updateInputChangeFlags();
  EXPECT_TRUE(patch.execute(context, time, Arguments()));
  patch.finishExecution();
}

// A fixture with one patch of the class, a context on the host thread's queue, and the lines the patch
// writes to its host's log.
template <typename PlugIn>
class PatchTest : public ::testing::Test {
 protected:
  PatchTest() : context_(queue_) {
    patch_.setHostLog([this](const std::string& line) { hostLog_.push_back(line); });
  }

  TaskQueue queue_;
  ExecutionContext context_;
  PlugIn patch_;
  std::vector<std::string> hostLog_;
};

}  // namespace qva
