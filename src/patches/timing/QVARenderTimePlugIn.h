#pragma once

#include <optional>
#include <string>
#include <vector>

#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Render Time": the clip timing the playout host hands in with each frame's arguments.
class QVARenderTimePlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  QVARenderTimePlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

 private:
  void updateCurrentName(const Arguments& arguments);
  void updateNextNames(const Arguments& arguments);

  // The last values written, so that unchanged outputs are not rewritten.
  std::optional<std::string> currentName_;
  std::optional<std::vector<std::string>> nextNames_;
};

}  // namespace qva
