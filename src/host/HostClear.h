#pragma once

#include "framework/Patch.h"

namespace qva {

// "Clear": fills the canvas with a colour (straight alpha) and resets depth, as a background layer.
class HostClear final : public Patch {
 public:
  static const PatchClass& patchClass();
  HostClear() : Patch(patchClass()) {}

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
};

}  // namespace qva
