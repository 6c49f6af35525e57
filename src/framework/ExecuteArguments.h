#pragma once

#include <cstdint>

#include "framework/Patch.h"

namespace qva {

// Readers of the per-frame arguments a playout host passes. A missing key, or no arguments at all,
// reads as null, 0 or false, as a missing dictionary entry does for the host.
struct ExecuteArguments {
  static const PropertyList* find(const Arguments& arguments, const char* key);
  static double number(const Arguments& arguments, const char* key);
  static std::uint64_t unsignedInteger(const Arguments& arguments, const char* key);
  static bool boolean(const Arguments& arguments, const char* key);
};

}  // namespace qva
