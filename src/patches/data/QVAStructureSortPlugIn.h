#pragma once

#include <string>
#include <vector>

#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Structure Sort": the values of a keyed structure as an array, in the natural order of their keys.
class QVAStructureSortPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();
  // The keys' positions in natural order: case-insensitive, digit runs by their numeric value ("item2"
  // before "item10"); equal keys keep their order.
  static std::vector<std::size_t> naturalOrder(const std::vector<std::string>& keys);

  QVAStructureSortPlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
};

}  // namespace qva
