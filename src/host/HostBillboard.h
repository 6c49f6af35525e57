#pragma once

#include "framework/Patch.h"

namespace qva {

// "Billboard": shows an image centred at a position, at a width in composition units (its height
// follows the image's aspect; width 0 shows it pixel for pixel), tinted by a colour, blended with
// premultiplied alpha.
class HostBillboard final : public Patch {
 public:
  static const PatchClass& patchClass();
  HostBillboard() : Patch(patchClass()) {}

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
};

}  // namespace qva
