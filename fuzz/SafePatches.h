#pragma once

// What the fuzzers may run many times a second: patch classes that need neither GL nor the file
// system nor the network, and shapes of a bounded size (any size is made as asked, but gigabyte
// pictures only slow the search down).
#include <algorithm>
#include <iterator>
#include <string_view>

#include "framework/PropertyList.h"

namespace qva::fuzz {

inline bool runsWithoutGLOrFiles(std::string_view className) {
  static constexpr std::string_view classes[] = {
      "ConvertTimePlugIn",
      "DateTimeFormatPlugIn",
      "QVACirclePlugIn",
      "QVADelayPlugIn",
      "QVAInterpolationPlugIn",
      "QVAPatchTimePlugIn",
      "QVAPolygonPlugIn",
      "QVARenderTimePlugIn",
      "QVARoundedRectPlugIn",
      "QVASkewedRectanglePlugIn",
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
  return std::find(std::begin(classes), std::end(classes), className) != std::end(classes);
}

// Limits the shape sizes among a patch's input values.
inline void capShapeSides(PropertyList& inputs) {
  constexpr double maximumSide = 2048;
  for (const char* key : {"inputWidth", "inputHeight"}) {
    if (inputs.contains(key) && inputs[key].is_number()) {
      inputs[key] = std::clamp(inputs[key].get<double>(), -1.0, maximumSide);
    }
  }
}

}  // namespace qva::fuzz
