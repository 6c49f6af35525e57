#pragma once

#include "framework/PropertyList.h"

namespace qva {

// Property-list bytes in script JSON: an object whose only key is "data", holding base64 text, stands
// for a byte string, at any depth. Internal settings such as a data store held by value travel so.
class ScriptBytes {
 public:
  // The value with every {"data": "<base64>"} object turned into bytes; text that is not base64 stays.
  static PropertyList fromScript(const PropertyList& value);
  // The value with every byte string written as {"data": "<base64>"}.
  static PropertyList toScript(const PropertyList& value);
};

}  // namespace qva
