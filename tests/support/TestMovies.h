#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

namespace qva {

// Movies made for tests with the ffmpeg command. Frame i shows i in binary as a row of black and white
// blocks, large enough for every lossy codec to keep, so a decoded frame tells which one it is; a band
// along the top edge tells which way is up.
class TestMovies {
 public:
  static constexpr int kWidth = 192;
  static constexpr int kHeight = 64;

  struct Recipe {
    int frames = 50;
    // Frames a second as ffmpeg takes it ("25", "30000/1001").
    std::string rate = "25";
    // The encoder's arguments, e.g. "-c:v libx264 -g 12".
    std::string codec = "-c:v libx264 -pix_fmt yuv420p";
    // Variable rate: the first half of the frames at the rate, the rest at twice the rate.
    bool variable = false;
  };

  // Whether the ffmpeg command runs here.
  static bool available();
  // Writes the movie; an empty string, or ffmpeg's complaint.
  static std::string make(const std::filesystem::path& path, const Recipe& recipe);
  // Runs ffmpeg with the arguments (after "-v error -y"); an empty string, or its complaint.
  static std::string ffmpeg(const std::string& arguments);
  // The index a frame of such a movie shows (straight or premultiplied BGRA, opaque).
  static int indexOf(const std::uint8_t* bgra, std::size_t rowBytes);
  // Whether the band is at the top (else the frame is upside down).
  static bool upright(const std::uint8_t* bgra, std::size_t rowBytes);
  // Where frame i of a variable-rate movie starts, in seconds.
  static double variableFrameStart(int index, double rate, int frames);
};

}  // namespace qva
