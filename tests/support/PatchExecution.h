#pragma once

#include <gtest/gtest.h>

#include "framework/Patch.h"

namespace qva {

// One execution as a host runs it: change flags first, execute (which must succeed), then the inputs
// are recorded for the next change test.
inline void executeOnce(Patch& patch, ExecutionContext& context, double time = 0) {
  patch.updateInputChangeFlags();
  EXPECT_TRUE(patch.execute(context, time, Arguments()));
  patch.finishExecution();
}

}  // namespace qva
