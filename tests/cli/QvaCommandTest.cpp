#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <thread>

#include "framework/PropertyList.h"
#include "support/TemporaryFolder.h"

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
           {"rtf describe /dev/zero", ""},
           {"render --interlace sideways --frames 1", ""},
           {"play --frames 1 --size 16x16 -o show.gif", ""},
           {"play --frames 1 --fps 0", ""},
           {"play --frames 1 --size 0x9", ""},
       }) {
    const CommandResult result = runQva(arguments, input);
    EXPECT_EQ(result.status, 2) << arguments;
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1)
        << arguments << ": " << result.output;
    EXPECT_EQ(result.output.find("internal error"), std::string::npos) << arguments << ": " << result.output;
  }
}

TEST(QvaCommand, NamesItselfItsVersionAndUnknownCommands) {
  const CommandResult version = runQva("--version");
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.output, "qva " QVA_VERSION "\n");
  const CommandResult help = runQva("render --help");
  EXPECT_EQ(help.output.find("Usage: qva render"), help.output.find("Usage: ")) << help.output;
  const CommandResult unknown = runQva("frobnicate --now");
  EXPECT_EQ(unknown.status, 2);
  EXPECT_NE(unknown.output.find("unknown command \"frobnicate\""), std::string::npos) << unknown.output;
  EXPECT_NE(unknown.output.find("render"), std::string::npos) << unknown.output;
}

// JSON nested far deeper than any composition or script needs is refused with its position, before a
// value deep enough to overflow the stack is built.
TEST(QvaCommand, DeeplyNestedJsonIsRefusedWithItsPosition) {
  const std::string nested = std::string(100000, '[') + std::string(100000, ']');
  const TemporaryFolder folder("deep");
  const std::string composition = (folder / "deep.qvc").string();
  std::ofstream(composition) << R"({"format": "qva-composition/1", "patches": [{"id": "a", "class": )"
                             << R"("QVAInterpolationPlugIn", "settings": {"deep": )" << nested << "}}]}";
  const std::string script = (folder / "deep.json").string();
  std::ofstream(script) << R"({"class": "QVAInterpolationPlugIn", "settings": {"deep": )" << nested
                        << R"(}, "steps": [{"time": 0}]})";
  for (const std::string& arguments : {"run " + composition + " --frames 1", "drive " + script}) {
    const CommandResult result = runQva(arguments);
    EXPECT_EQ(result.status, 2) << arguments;
    EXPECT_NE(result.output.find("line 1, column "), std::string::npos) << arguments << ": " << result.output;
    EXPECT_NE(result.output.find("nest more than"), std::string::npos) << arguments << ": " << result.output;
  }
}

// A picture the decoder refuses for its size is named in the log; other failures stay silent.
TEST(QvaCommand, AnImageRefusedForItsSizeIsLogged) {
  // A PNG header of 20000 × 20000 pixels, and no picture data.
  const auto chunk = [](const std::string& type, const std::string& data) {
    const std::string bytes = type + data;
    const auto crc = static_cast<std::uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
    const auto word = [](std::uint32_t value) {
      return std::string{static_cast<char>(value >> 24), static_cast<char>(value >> 16),
                         static_cast<char>(value >> 8), static_cast<char>(value)};
    };
    return word(static_cast<std::uint32_t>(data.size())) + bytes + word(crc);
  };
  const std::string header = std::string("\x00\x00\x4e\x20\x00\x00\x4e\x20\x08\x06\x00\x00\x00", 13);
  const TemporaryFolder folder("huge");
  const std::string png = (folder / "huge.png").string();
  std::ofstream(png, std::ios::binary) << "\x89PNG\r\n\x1a\n"
                                       << chunk("IHDR", header) << chunk("IDAT", "") << chunk("IEND", "");
  const CommandResult result = runQva("drive -", R"({"class": "QVAImageLoaderPlugIn", "steps": [)"
                                                 R"({"time": 0, "inputs": {"inputPath": ")" +
                                                     png + R"("}}]})");
  ASSERT_EQ(result.status, 0) << result.output;
  const PropertyList line = PropertyList::parse(result.output);
  ASSERT_EQ(line["log"].size(), 1u) << result.output;
  EXPECT_NE(line["log"][0].get<std::string>().find("20000x20000 pixels is too large"), std::string::npos)
      << result.output;
  EXPECT_NE(line["outputs"]["outputImageLoaded"], true);
}

// A reader that stops reading raw frames ends the render without a message or a signal, with the
// status a shell reports for a broken pipe.
TEST(QvaCommand, RawFramesIntoAClosedPipeEndQuietly) {
  int frames[2];
  int errors[2];
  ASSERT_EQ(pipe(frames), 0);
  ASSERT_EQ(pipe(errors), 0);
  const std::string qva = std::string(QVA_BINARY_DIR) + "/src/cli/qva";
  const char* const arguments[] = {qva.c_str(), "render", "--size", "64x36", "--frames",
                                   "100000",    "-o",     "-",      nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, frames[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errors[1], STDERR_FILENO);
  posix_spawn_file_actions_addclose(&actions, frames[0]);
  posix_spawn_file_actions_addclose(&actions, errors[0]);
  pid_t child = 0;
  ASSERT_EQ(posix_spawn(&child, qva.c_str(), &actions, nullptr, const_cast<char* const*>(arguments), environ),
            0);
  posix_spawn_file_actions_destroy(&actions);
  close(frames[1]);
  close(errors[1]);
  char firstFrame[64 * 36 * 4];
  const bool rendering = read(frames[0], firstFrame, sizeof firstFrame) > 0;
  close(frames[0]);
  std::string errorText;
  char buffer[512];
  for (ssize_t count = 0; (count = read(errors[0], buffer, sizeof buffer)) > 0;) {
    errorText.append(buffer, static_cast<std::size_t>(count));
  }
  close(errors[0]);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  if (!rendering) {
    GTEST_SKIP() << "qva render wrote no frame (no OpenGL?): " << errorText;
  }
  ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 128 + SIGPIPE);
  EXPECT_EQ(errorText, "");
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

  const CommandResult lowerThird =
      runQva("run " + std::string(QVA_SOURCE_DIR) + "/examples/lower-third.qvc --frames 40 --fps 10");
  ASSERT_EQ(lowerThird.status, 0) << lowerThird.output;
  EXPECT_NE(lowerThird.output.rfind("\"waiting\":true"), std::string::npos) << "the lower third holds on air";
}

// The layers of the example's document (as another tool reports them: the bar 1100 × 150 at (160, 820),
// the title 475 × 42 at (202, 908) on 1920 × 1080) fly in from the left to their places in host units.
TEST(QvaCommand, ThePsdLowerThirdFliesItsLayersIn) {
  const CommandResult run =
      runQva("run " + std::string(QVA_SOURCE_DIR) + "/examples/psd-lower-third.qvc --frames 30 --fps 10");
  ASSERT_EQ(run.status, 0) << run.output;
  std::vector<PropertyList> frames;
  for (std::size_t start = 0; start < run.output.size();) {
    const std::size_t end = run.output.find('\n', start);
    frames.push_back(PropertyList::parse(run.output.substr(start, end - start))["outputs"]);
    start = end + 1;
  }
  ASSERT_EQ(frames.size(), 30u);
  EXPECT_EQ(frames[0]["barX"], -2.5);
  EXPECT_EQ(frames[0]["titleX"], -2.5);
  EXPECT_GT(frames[5]["barX"].get<double>(), -2.5) << "the bar moves first";
  EXPECT_EQ(frames[5]["titleX"], -2.5) << "the title waits its turn";
  EXPECT_NEAR(frames[29]["barX"].get<double>(), (2 * 160 / 1920.0 - 1) + 1100 / 1920.0, 1e-9);
  EXPECT_NEAR(frames[29]["titleX"].get<double>(), (2 * 202 / 1920.0 - 1) + 475 / 1920.0, 1e-9);
  EXPECT_EQ(frames[29]["titleName"], "Title");
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

TEST(QvaCommand, PlayStopsOnTerminationWithItsVideosWhole) {
  TemporaryFolder folder("play-terminated");
  const std::string qva = std::string(QVA_BINARY_DIR) + "/src/cli/qva";
  const std::string movie = (folder / "live.mov").string();
  const std::string lossless = (folder / "live.mkv").string();
  const char* const arguments[] = {qva.c_str(), "play",        "--size", "160x90",         "--fps", "25",
                                   "-o",        movie.c_str(), "-o",     lossless.c_str(), nullptr};
  pid_t child = 0;
  ASSERT_EQ(posix_spawn(&child, qva.c_str(), nullptr, nullptr, const_cast<char* const*>(arguments), environ),
            0);
  int status = 0;
  bool ended = false;
  for (int i = 0; i < 600 && !ended && std::filesystem::is_empty(folder.path()); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ended = waitpid(child, &status, WNOHANG) == child;
  }
  if (ended) {
    GTEST_SKIP() << "qva play ended before it was stopped (no OpenGL?), status " << status;
  }
  // With no duration it plays until stopped.
  std::this_thread::sleep_for(std::chrono::milliseconds(800));
  ASSERT_EQ(waitpid(child, &status, WNOHANG), 0);
  kill(child, SIGTERM);
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "ended by a signal instead of stopping";
  EXPECT_EQ(WEXITSTATUS(status), 0);
  for (const std::string& video : {movie, lossless}) {
    ASSERT_TRUE(std::filesystem::exists(video)) << video;
    // A finished file has its index at the end; an unfinished one would not be kept under its name.
    EXPECT_GT(std::filesystem::file_size(video), 1000u) << video;
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 2);
}

TEST(QvaCommand, PlayGoesOnIntoTheOtherOutputsWhenOneFails) {
  TemporaryFolder folder("play-failing");
  const std::string video = (folder / "kept.mkv").string();
  const CommandResult result =
      runQva("play --size 64x36 --fps 25 --duration 1 -o 'gst:filesink location=/dev/full' -o " + video);
  if (result.output.find("EGL") != std::string::npos || result.output.find("OpenGL") != std::string::npos) {
    GTEST_SKIP() << result.output;
  }
  // The failure is reported once as it happens, and again in the summary, with status 1.
  EXPECT_EQ(result.status, 1) << result.output;
  EXPECT_NE(result.output.find("stopped: the GStreamer pipeline"), std::string::npos) << result.output;
  // A second at 25 frames a second; frames the clock dropped before the first was shown have nothing to
  // repeat in their place, on a busy machine.
  std::smatch written;
  ASSERT_TRUE(
      std::regex_search(result.output, written, std::regex(R"(kept\.mkv \(ffv1\): (\d+) frames written)")))
      << result.output;
  EXPECT_GE(std::stoi(written[1]), 12) << result.output;
  EXPECT_LE(std::stoi(written[1]), 25) << result.output;
  EXPECT_TRUE(std::filesystem::exists(video));
}

}  // namespace
}  // namespace qva
