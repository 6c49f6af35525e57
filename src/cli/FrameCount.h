#pragma once

#include <optional>

namespace qva {

class Composition;

// The frame rate and number of frames of a run: the command line's --fps, --frames or --duration where
// given, else the composition's own frame rate and duration.
struct FrameCount {
  double frameRate = 0;
  long long frames = 0;

  // Throws CommandError for a frame rate, duration or frame count that cannot be used.
  static FrameCount resolve(const Composition& composition, std::optional<long long> frames,
                            std::optional<double> duration, std::optional<double> frameRate);
};

}  // namespace qva
