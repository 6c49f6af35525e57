#pragma once

#include <string>

#include "framework/PropertyList.h"

namespace qva {

// A NAME=VALUE assignment of a published input given on the command line. VALUE is read as JSON when it
// is valid JSON (10, true, [1, 0, 0, 1]) and as a plain string otherwise.
struct PublishedInputAssignment {
  std::string name;
  PropertyList value;

  // Throws CommandError when the text has no "=" or no name.
  static PublishedInputAssignment parse(const std::string& text);
};

}  // namespace qva
