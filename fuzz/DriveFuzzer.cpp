// Feeds arbitrary drive scripts to the patches that need neither GL nor the file system: inputs,
// settings, arguments and ops of any shape must end in a DriveError or a report, never a crash. The
// script is first made safe to run many times a second: no GL, no file changes, no waiting, a bounded
// number of steps, small solid images and shapes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "SafePatches.h"
#include "framework/PropertyList.h"
#include "host/DriveSession.h"
#include "patches/AllPatches.h"

namespace {

constexpr std::size_t kMaximumSteps = 24;
constexpr int kMaximumImageSide = 64;

bool safeToRun(qva::PropertyList& script) {
  if (!script.is_object() || !script.contains("class") || !script["class"].is_string() ||
      !qva::fuzz::runsWithoutGLOrFiles(script["class"].get<std::string>())) {
    return false;
  }
  if (script.contains("context") && script["context"].is_object()) {
    script["context"].erase("gl");
  }
  if (!script.contains("steps") || !script["steps"].is_array()) {
    return true;
  }
  qva::PropertyList steps = qva::PropertyList::array();
  for (qva::PropertyList& step : script["steps"]) {
    if (steps.size() == kMaximumSteps) {
      break;
    }
    if (step.is_object() && step.contains("op") && (step["op"] == "fs" || step["op"] == "wait")) {
      continue;
    }
    if (step.is_object() && step.contains("inputs") && step["inputs"].is_object()) {
      qva::fuzz::capShapeSides(step["inputs"]);
      for (auto& [key, value] : step["inputs"].items()) {
        if (value.is_object() && value.contains("imageFile")) {
          value.erase("imageFile");
        }
        for (const char* side : {"width", "height"}) {
          if (value.is_object() && value.contains(side) && value[side].is_number()) {
            value[side] = std::clamp(value[side].get<double>(), 0.0, double{kMaximumImageSide});
          }
        }
      }
    }
    steps.push_back(std::move(step));
  }
  script["steps"] = std::move(steps);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  qva::PropertyList script =
      qva::parsePropertyList(std::string_view(reinterpret_cast<const char*>(data), size), false);
  if (script.is_discarded() || !safeToRun(script)) {
    return 0;
  }
  qva::DriveOptions options;
  options.registry = &qva::bundledPatches();
  options.scriptFolder = "/nonexistent";
  try {
    qva::DriveSession::runScript(script, options);
  } catch (const qva::DriveError&) {
  }
  return 0;
}
