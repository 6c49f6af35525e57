#pragma once

#include <string>
#include <utility>
#include <vector>

#include "framework/PropertyList.h"
#include "host/PlayoutControl.h"

namespace qva {

// Published-input changes a control client sends as JSON, checked against the inputs of the
// composition playing. The HTTP API and OSC both read their changes through it.
class PublishedInputJson {
 public:
  using Changes = std::vector<std::pair<std::string, Value>>;

  // The value of JSON for the input of that name. Throws ControlRequestError: 404 for a name the
  // composition does not publish, 400 for JSON of the wrong kind for the input's type (a string for a
  // Boolean, a fraction for an Index, anything for an Image).
  static Value decode(const std::string& name, const PropertyList& json,
                      const std::vector<PublishedInputState>& inputs);
  // Every member of a JSON object {"name": value, ...} decoded as above; the first bad member throws.
  static Changes decodeAll(const PropertyList& object, const std::vector<PublishedInputState>& inputs);
};

}  // namespace qva
