#pragma once

#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Logger": writes its message, after an optional prefix, to the process log and the system log
// whenever the message or the prefix changes.
class QVALoggerPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  QVALoggerPlugIn();

  double executionTimeForContext(ExecutionContext& context, double time, const Arguments& arguments) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
};

}  // namespace qva
