#pragma once

#include "framework/Patch.h"

namespace qva {

// One execution as the host runs it, without its test of whether one is due: change flags first, then
// execute, then the inputs are recorded for the next change test.
inline bool executeOnce(Patch& patch, ExecutionContext& context, double time) {
  patch.updateInputChangeFlags();
  const bool done = patch.execute(context, time, Arguments());
  patch.finishExecution();
  return done;
}

}  // namespace qva
