#pragma once

#include "framework/PropertyList.h"
#include "host/PlayoutControl.h"

namespace qva {

// The state of a playing composition as the control API and its event stream publish it.
class PlayoutStateJson {
 public:
  // {"composition", "time", "frame", "frameRate", "pacing": {...}, "inputs": [{"name", "type", "value",
  // "minimum", "maximum", "menuItems"}], "outputs": [{"name", "value"}]}; the range and menu only where
  // the input has them, images as null.
  static PropertyList encode(const PlayoutState& state);
  // JSON text that never fails: strings that are not UTF-8 are written with replacement characters.
  static std::string text(const PropertyList& json);
};

}  // namespace qva
