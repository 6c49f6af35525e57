#include "support/TestMovies.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <vector>

namespace qva {

namespace {

constexpr int kBits = 12;
constexpr int kBlockWidth = TestMovies::kWidth / kBits;

std::string quoted(const std::string& text) {
  std::string result = "'";
  for (const char c : text) {
    result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return result + "'";
}

// What ffmpeg wrote to its error file (removed), or a general complaint; empty when it succeeded.
std::string complaint(bool succeeded, const std::filesystem::path& errors) {
  std::ifstream file(errors);
  std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  std::error_code ignored;
  std::filesystem::remove(errors, ignored);
  return succeeded ? std::string() : (text.empty() ? "ffmpeg failed" : text);
}

std::filesystem::path errorFile() {
  return std::filesystem::temp_directory_path() / ("qva-ffmpeg-" + std::to_string(::getpid()) + ".log");
}

}  // namespace

bool TestMovies::available() {
  return std::system("ffmpeg -version >/dev/null 2>&1") == 0;
}

std::string TestMovies::ffmpeg(const std::string& arguments) {
  const auto errors = errorFile();
  const int status =
      std::system(("ffmpeg -nostdin -v error -y " + arguments + " 2>" + quoted(errors.string())).c_str());
  return complaint(status == 0, errors);
}

std::string TestMovies::make(const std::filesystem::path& path, const Recipe& recipe) {
  std::string filter;
  if (recipe.variable) {
    const std::string half = std::to_string(recipe.frames / 2);
    filter = " -vf \"settb=1/1000,setpts='if(lt(N," + half + "),N/(" + recipe.rate + "),(" + half + ")/(" +
             recipe.rate + ")+(N-" + half + ")/(2*" + recipe.rate +
             "))/TB'\" -fps_mode passthrough -enc_time_base:v 1/1000";
  }
  const auto errors = errorFile();
  const std::string command = "ffmpeg -v error -y -f rawvideo -pix_fmt bgra -s " + std::to_string(kWidth) +
                              "x" + std::to_string(kHeight) + " -r " + recipe.rate + " -i - " + recipe.codec +
                              filter + " " + quoted(path.string()) + " 2>" + quoted(errors.string());
  FILE* pipe = ::popen(command.c_str(), "w");
  if (pipe == nullptr) {
    return "ffmpeg cannot be started";
  }
  std::vector<std::uint8_t> frame(static_cast<std::size_t>(kWidth) * kHeight * 4);
  for (int index = 0; index < recipe.frames; ++index) {
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        // A white band along the top edge shows which way is up.
        const bool set = y < kHeight / 8 || ((index >> (x / kBlockWidth)) & 1) != 0;
        std::uint8_t* pixel = &frame[(static_cast<std::size_t>(y) * kWidth + x) * 4];
        pixel[0] = pixel[1] = pixel[2] = set ? 235 : 16;
        pixel[3] = 255;
      }
    }
    std::fwrite(frame.data(), 1, frame.size(), pipe);
  }
  return complaint(::pclose(pipe) == 0, errors);
}

int TestMovies::indexOf(const std::uint8_t* bgra, std::size_t rowBytes) {
  int index = 0;
  for (int bit = 0; bit < kBits; ++bit) {
    const std::uint8_t* pixel =
        bgra + rowBytes * (kHeight / 2) + static_cast<std::size_t>(bit * kBlockWidth + kBlockWidth / 2) * 4;
    if ((pixel[0] + pixel[1] + pixel[2]) / 3 > 127) {
      index |= 1 << bit;
    }
  }
  return index;
}

bool TestMovies::upright(const std::uint8_t* bgra, std::size_t rowBytes) {
  const auto whiteRow = [&](int y) {
    for (int bit = 0; bit < kBits; ++bit) {
      if (bgra[rowBytes * static_cast<std::size_t>(y) +
               static_cast<std::size_t>(bit * kBlockWidth + kBlockWidth / 2) * 4 + 1] <= 127) {
        return false;
      }
    }
    return true;
  };
  // Some block of a frame below the last is black, below the band.
  return whiteRow(2) && !whiteRow(kHeight - 3);
}

double TestMovies::variableFrameStart(int index, double rate, int frames) {
  const int half = frames / 2;
  return index < half ? index / rate : half / rate + (index - half) / (2 * rate);
}

}  // namespace qva
