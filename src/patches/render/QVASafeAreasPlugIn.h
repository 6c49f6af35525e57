#pragma once

#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Safe Areas": outlines the action-safe (90 %) and title-safe (80 %) frames of the visible area
// over the scene, as a layout aid.
class QVASafeAreasPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();
  QVASafeAreasPlugIn() : QVAPlugIn(patchClass()) {}

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

  // The bounds inset by 5 % (action safe) or 10 % (title safe) of their size on every side.
  static Rect actionSafeArea(const Rect& bounds) { return inset(bounds, 0.05); }
  static Rect titleSafeArea(const Rect& bounds) { return inset(bounds, 0.10); }

 private:
  static Rect inset(const Rect& bounds, double fraction);
};

}  // namespace qva
