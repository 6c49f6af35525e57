// Feeds arbitrary drive scripts to the patches that need neither GL nor the file system: inputs,
// settings, arguments and ops of any shape must end in a DriveError or a report, never a crash. The
// script is first made safe to run many times a second: no GL, no file changes, no waiting, a bounded
// number of steps, small solid images and shapes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "framework/PropertyList.h"
#include "host/DriveSession.h"
#include "patches/AllPatches.h"

namespace {

constexpr std::string_view kClasses[] = {
    "ConvertTimePlugIn",
    "DateTimeFormatPlugIn",
    "QCCirclePlugIn",
    "QCPolygonPlugIn",
    "QCRoundedRectPlugIn",
    "QCSkewedRectanglePlugIn",
    "QVADelayPlugIn",
    "QVAInterpolationPlugIn",
    "QVAPatchTimePlugIn",
    "QVARenderTimePlugIn",
    "QVASmoothPlugIn",
    "QVAStepFunctionPlugIn",
    "QVAStopWatchPlugIn",
    "QVAStopframesPlugIn",
    "QVAStructureSortPlugIn",
    "QVAURLStringDecoderPlugIn",
    "QVAURLStringEncoderPlugIn",
    "RTF_String_CheckerPlugIn",
    "RTF_String_LengthPlugIn",
    "RTF_String_PrinterPlugIn",
    "RTF_String_SubrangePlugIn",
    "RTF_String_With_StringPlugIn",
    "RTF_String_to_Plain_TextPlugIn",
    "RTF_StylePlugIn",
};
constexpr std::size_t kMaximumSteps = 24;
constexpr int kMaximumImageSide = 64;
constexpr int kMaximumShapeSide = 2048;

bool safeToRun(qva::PropertyList& script) {
  if (!script.is_object() || !script.contains("class") || !script["class"].is_string() ||
      std::find(std::begin(kClasses), std::end(kClasses), script["class"].get<std::string>()) ==
          std::end(kClasses)) {
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
      for (auto& [key, value] : step["inputs"].items()) {
        // Shapes of any size are made as asked; gigabyte pictures only slow the search down.
        if ((key == "inputWidth" || key == "inputHeight") && value.is_number()) {
          value = std::clamp(value.get<double>(), -1.0, double{kMaximumShapeSide});
        }
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
      qva::PropertyList::parse(std::string_view(reinterpret_cast<const char*>(data), size), nullptr, false);
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
