#pragma once

#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Path Info": whether a path exists and, if so, its kind, access rights, dates, owner, group and
// size, examined at most twice a second.
class QVAPathInfoPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  QVAPathInfoPlugIn();

  double executionTimeForContext(ExecutionContext& context, double time, const Arguments& arguments) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

 private:
  void resetOutputPorts();

  double _lastUpdateTime = 0;
};

}  // namespace qva
