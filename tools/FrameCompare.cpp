// qva_frame_compare WIDTH HEIGHT TOLERANCE ALLOWED A B: compares two files of raw frames (as
// `qva render -o -` writes them, width × height BGRA pixels each) and prints one line a frame: the
// largest difference of one channel, how many pixels differ at all, and how many by more than the
// tolerance. A frame fails when more than ALLOWED pixels differ by more than the tolerance (drivers
// round filters and place edges a little differently; a drawing fault changes many pixels by far more).
// Exits 1 when a frame fails or the files hold different numbers of frames, 2 on bad use.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

namespace {

struct FrameDifference {
  int largest = 0;
  long long pixels = 0;
  long long beyondTolerance = 0;
};

FrameDifference compare(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b,
                        int tolerance) {
  FrameDifference difference;
  for (std::size_t pixel = 0; pixel + 4 <= a.size(); pixel += 4) {
    int largest = 0;
    for (std::size_t channel = pixel; channel < pixel + 4; ++channel) {
      largest = std::max(largest, std::abs(static_cast<int>(a[channel]) - static_cast<int>(b[channel])));
    }
    difference.largest = std::max(difference.largest, largest);
    difference.pixels += largest > 0 ? 1 : 0;
    difference.beyondTolerance += largest > tolerance ? 1 : 0;
  }
  return difference;
}

bool readFrame(std::ifstream& file, std::vector<std::uint8_t>& frame) {
  file.read(reinterpret_cast<char*>(frame.data()), static_cast<std::streamsize>(frame.size()));
  return file.gcount() == static_cast<std::streamsize>(frame.size());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 7) {
    std::fprintf(stderr, "usage: %s WIDTH HEIGHT TOLERANCE ALLOWED A.raw B.raw\n", argv[0]);
    return 2;
  }
  const long width = std::strtol(argv[1], nullptr, 10);
  const long height = std::strtol(argv[2], nullptr, 10);
  const int tolerance = static_cast<int>(std::strtol(argv[3], nullptr, 10));
  const long long allowed = std::strtoll(argv[4], nullptr, 10);
  std::ifstream a(argv[5], std::ios::binary);
  std::ifstream b(argv[6], std::ios::binary);
  if (width <= 0 || height <= 0 || width > 16384 || height > 16384 || tolerance < 0 || allowed < 0 || !a ||
      !b) {
    std::fprintf(stderr,
                 "%s: needs positive sizes, a tolerance and a count of 0 or more, and two readable files\n",
                 argv[0]);
    return 2;
  }
  const std::size_t frameBytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
  std::vector<std::uint8_t> frameA(frameBytes);
  std::vector<std::uint8_t> frameB(frameBytes);
  bool passed = true;
  int index = 0;
  for (;; ++index) {
    const bool haveA = readFrame(a, frameA);
    const bool haveB = readFrame(b, frameB);
    if (haveA != haveB) {
      std::printf("frame %d: only in %s\n", index, haveA ? argv[5] : argv[6]);
      passed = false;
    }
    if (!haveA || !haveB) {
      break;
    }
    const FrameDifference difference = compare(frameA, frameB, tolerance);
    const bool framePassed = difference.beyondTolerance <= allowed;
    std::printf("frame %d: largest difference %d, %lld pixels differ, %lld by more than %d%s\n", index,
                difference.largest, difference.pixels, difference.beyondTolerance, tolerance,
                framePassed ? "" : "  FAILED");
    passed = passed && framePassed;
  }
  if (index == 0) {
    std::printf("no frames\n");
  }
  return passed && index > 0 ? 0 : 1;
}
