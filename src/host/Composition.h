#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/PropertyList.h"
#include "framework/Value.h"

namespace qva {

// A composition file that cannot be used; the message starts with "FILE:LINE:COLUMN:" where a position
// is known.
class CompositionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A port of a patch named "id.portKey".
struct PortReference {
  std::string patchId;
  std::string portKey;

  static std::optional<PortReference> parse(const std::string& text);
  std::string text() const { return patchId + "." + portKey; }
};

// A composition file (format "qva-composition/1", JSON): canvas, frame rate, duration, background,
// patches by id, connections "id.outputKey -> id.inputKey", published inputs and outputs.
class Composition {
 public:
  static constexpr const char* kFormat = "qva-composition/1";

  struct PatchEntry {
    std::string id;
    std::string className;
    PropertyList settings = PropertyList::object();
    PropertyList inputs = PropertyList::object();
    int layer = 0;
    // An external time base: the patch runs at this output's value instead of the composition time.
    std::optional<PortReference> timeSource;
  };
  struct Connection {
    PortReference from;
    PortReference to;
    std::string text;
  };

  // Reads and checks the structure of a composition file; throws CompositionError.
  static Composition load(const std::string& path);
  // Parses composition text; the path names it in messages and locates relative paths.
  static Composition parse(const std::string& text, const std::string& path);

  const std::string& path() const { return path_; }
  int width() const { return width_; }
  int height() const { return height_; }
  double frameRate() const { return frameRate_; }
  double duration() const { return duration_; }
  const Color& background() const { return background_; }
  const std::vector<PatchEntry>& patches() const { return patches_; }
  const std::vector<Connection>& connections() const { return connections_; }
  const std::map<std::string, PortReference>& publishedInputs() const { return publishedInputs_; }
  // With "gpiDriver": "simulated", the state the simulated GPI box starts in ("gpiBox", checked);
  // without it, none, and GPI patches use the real driver.
  const std::optional<PropertyList>& simulatedGpiBox() const { return simulatedGpiBox_; }
  // Published outputs in the order the file gives them.
  const std::vector<std::pair<std::string, PortReference>>& publishedOutputs() const {
    return publishedOutputs_;
  }

  // An error naming the position of a text in the file (the first occurrence of the quoted token after
  // the occurrence of the quoted anchor, when given).
  CompositionError errorAt(const std::string& message, const std::string& token,
                           const std::string& anchor = "") const;

 private:
  std::string path_;
  std::string text_;
  int width_ = 1920;
  int height_ = 1080;
  double frameRate_ = 50;
  double duration_ = 10;
  Color background_{0, 0, 0, 0};
  std::vector<PatchEntry> patches_;
  std::vector<Connection> connections_;
  std::map<std::string, PortReference> publishedInputs_;
  std::vector<std::pair<std::string, PortReference>> publishedOutputs_;
  std::optional<PropertyList> simulatedGpiBox_;
};

}  // namespace qva
