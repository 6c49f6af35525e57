#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "framework/PropertyList.h"

namespace qva {
namespace {

struct CommandResult {
  int status = -1;
  std::string output;
};

// Runs the built qva with the arguments (and standard input text), standard error kept apart.
CommandResult runQva(const std::string& arguments, const std::string& input = "") {
  // One file per test process: CTest runs the tests side by side.
  const std::string errorFile = ::testing::TempDir() + "qva-stderr-" + std::to_string(getpid()) + ".txt";
  std::string command = std::string(QVA_BINARY_DIR) + "/src/cli/qva " + arguments + " 2>" + errorFile;
  if (!input.empty()) {
    command = "printf '%s' '" + input + "' | " + command;
  }
  CommandResult result;
  FILE* pipe = popen(command.c_str(), "r");
  std::array<char, 4096> buffer{};
  while (std::fgets(buffer.data(), buffer.size(), pipe) != nullptr) {
    result.output += buffer.data();
  }
  result.status = WEXITSTATUS(pclose(pipe));
  FILE* errors = std::fopen(errorFile.c_str(), "r");
  std::string errorText;
  while (errors != nullptr && std::fgets(buffer.data(), buffer.size(), errors) != nullptr) {
    errorText += buffer.data();
  }
  if (errors != nullptr) {
    std::fclose(errors);
  }
  std::remove(errorFile.c_str());
  if (result.status != 0) {
    result.output = errorText;
  }
  return result;
}

TEST(QvaCommand, BadInputGivesOneLineOnStandardErrorAndStatusTwo) {
  for (const auto& [arguments, input] : std::vector<std::pair<std::string, std::string>>{
           {"describe QVANoSuchPlugIn", ""},
           {"drive -", R"({"class": "QVAInterpolationPlugIn", "steps": [{"op": "explode"}]})"},
           {"drive -", "{not json"},
           {"drive -", R"({"class": "QVAInterpolationPlugIn", "steps": [{"time": 1e999}]})"},
           {"drive /nonexistent/script.json", ""},
           {"run /nonexistent/composition.qvc", ""},
           {"run " + std::string(QVA_SOURCE_DIR) + "/examples/stopframes.qvc --set nothing=1", ""},
           {"frobnicate", ""},
           {"render --interlace sideways --frames 1", ""},
       }) {
    const CommandResult result = runQva(arguments, input);
    EXPECT_EQ(result.status, 2) << arguments;
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1)
        << arguments << ": " << result.output;
    EXPECT_EQ(result.output.find("internal error"), std::string::npos) << arguments << ": " << result.output;
  }
}

TEST(QvaCommand, FrameRatesAndCountsBeyondReachAreRefusedByName) {
  const std::string fast = ::testing::TempDir() + "qva-fast-" + std::to_string(getpid()) + ".qvc";
  std::ofstream(fast) << R"({"format": "qva-composition/1", "fps": 2e6, "patches": []})";
  for (const auto& [arguments, message] : std::vector<std::pair<std::string, std::string>>{
           {"run " + fast, "the composition's frame rate of 2e+06"},
           {"render --fps 1e300 --frames 3 -o " + ::testing::TempDir() + "unwritten.mov", "--fps must be"},
           {"render --fps 1e6 --duration 1e300", "too many frames"},
           {"run " + std::string(QVA_SOURCE_DIR) + "/examples/stopframes.qvc --fps inf", "--fps must be"},
       }) {
    const CommandResult result = runQva(arguments);
    EXPECT_EQ(result.status, 2) << arguments;
    EXPECT_NE(result.output.find(message), std::string::npos) << arguments << ": " << result.output;
  }
  std::remove(fast.c_str());
}

TEST(QvaCommand, DriveAndDescribePrintJson) {
  const CommandResult drive = runQva(
      "drive -", R"({"class": "QVAInterpolationPlugIn", "steps": [{"time": 5.25}, {"op": "attributes"}]})");
  ASSERT_EQ(drive.status, 0) << drive.output;
  const std::size_t newline = drive.output.find('\n');
  EXPECT_EQ(PropertyList::parse(drive.output.substr(0, newline))["outputs"]["outputValue"], 0.5);
  EXPECT_EQ(PropertyList::parse(drive.output.substr(newline + 1))["name"], "QVA Interpolation");

  const CommandResult describe = runQva("describe QVAStopframesPlugIn --json");
  ASSERT_EQ(describe.status, 0);
  const PropertyList description = PropertyList::parse(describe.output);
  EXPECT_EQ(description["plugInKeys"],
            PropertyList({"savedVersion", "compositionDuration", "stopframes", "enableStopframesInQVAApps"}));
  EXPECT_EQ(description["inputs"][0]["key"], "inputTrigger");
}

TEST(QvaCommand, TheExamplesRun) {
  const CommandResult stopframes =
      runQva("run " + std::string(QVA_SOURCE_DIR) + "/examples/stopframes.qvc --frames 30 --fps 10");
  ASSERT_EQ(stopframes.status, 0) << stopframes.output;
  const std::string last =
      stopframes.output.substr(stopframes.output.rfind('\n', stopframes.output.size() - 2) + 1);
  const PropertyList frame = PropertyList::parse(last);
  EXPECT_EQ(frame["outputs"]["waiting"], true) << "the timeline waits at its first stop frame";
  EXPECT_EQ(frame["outputs"]["time"], 1.5);
  EXPECT_EQ(frame["outputs"]["x"], 0.0);

  const CommandResult countdown = runQva("run " + std::string(QVA_SOURCE_DIR) +
                                         "/examples/countdown.qvc --frames 2 --fps 1 --set duration=0:10");
  ASSERT_EQ(countdown.status, 0) << countdown.output;
  EXPECT_NE(countdown.output.find("\"remaining\":\"00:09\""), std::string::npos) << countdown.output;
}

TEST(QvaCommand, RenderWritesInterlacedVideo) {
  const std::string path = ::testing::TempDir() + "qva-interlaced.mkv";
  std::remove(path.c_str());
  const CommandResult result = runQva("render --size 64x36 --frames 2 --fps 25 --interlace lower -o " + path);
  if (result.status != 0 && result.output.find("no OpenGL") != std::string::npos) {
    GTEST_SKIP() << result.output;
  }
  ASSERT_EQ(result.status, 0) << result.output;
  FILE* video = std::fopen(path.c_str(), "rb");
  ASSERT_NE(video, nullptr);
  std::fseek(video, 0, SEEK_END);
  EXPECT_GT(std::ftell(video), 0);
  std::fclose(video);
  std::remove(path.c_str());
}

// Ctrl-C during a render stops it between frames, with the conventional status, and takes the
// unfinished video file with it.
TEST(QvaCommand, InterruptedRenderLeavesNoVideoBehind) {
  const std::filesystem::path folder =
      std::filesystem::path(::testing::TempDir()) / ("qva-interrupted-" + std::to_string(getpid()));
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  const std::string qva = std::string(QVA_BINARY_DIR) + "/src/cli/qva";
  const std::string output = (folder / "long.mov").string();
  const char* const arguments[] = {qva.c_str(), "render", "--size",       "320x180", "--frames",
                                   "100000",    "-o",     output.c_str(), nullptr};
  pid_t child = 0;
  ASSERT_EQ(posix_spawn(&child, qva.c_str(), nullptr, nullptr, const_cast<char* const*>(arguments), environ),
            0);
  // Wait until frames are being written, or the command has ended (without GL it fails at once).
  int status = 0;
  bool ended = false;
  for (int i = 0; i < 600 && !ended; ++i) {
    if (!std::filesystem::is_empty(folder)) {
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ended = waitpid(child, &status, WNOHANG) == child;
  }
  if (ended) {
    std::filesystem::remove_all(folder);
    GTEST_SKIP() << "qva render ended before it was interrupted (no OpenGL?), status " << status;
  }
  ASSERT_FALSE(std::filesystem::is_empty(folder)) << "no output file appeared";
  kill(child, SIGINT);
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "ended by a signal instead of stopping";
  EXPECT_EQ(WEXITSTATUS(status), 128 + SIGINT);
  EXPECT_TRUE(std::filesystem::is_empty(folder));
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace qva
