#pragma once

#include <string>
#include <vector>

#include "framework/PropertyList.h"

namespace qva {

class CompositionGraph;

// A NAME=VALUE assignment of a published input given on the command line. VALUE is read as JSON when it
// is valid JSON (10, true, [1, 0, 0, 1]) and as a plain string otherwise.
struct PublishedInputAssignment {
  std::string name;
  PropertyList value;

  // Throws CommandError when the text has no "=" or no name.
  static PublishedInputAssignment parse(const std::string& text);
  // Parses each NAME=VALUE and sets that published input of the graph; throws CommandError for an
  // unknown name or a value the input cannot take.
  static void applyAll(const std::vector<std::string>& texts, CompositionGraph& graph);
};

}  // namespace qva
