#include <fcntl.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <thread>

#include "framework/PropertyList.h"
#include "support/QvaProcess.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

const std::string examples = std::string(QVA_SOURCE_DIR) + "/examples/";

// Waits until a file appears in the folder, or the process ends (as it does at once without GL); whether
// it ended, its status then in status.
bool endsBeforeWriting(pid_t child, const std::filesystem::path& folder, int& status) {
  for (int i = 0; i < 600 && std::filesystem::is_empty(folder); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    if (waitpid(child, &status, WNOHANG) == child) {
      return true;
    }
  }
  return false;
}

TEST(QvaCommand, BadInputGivesOneLineOnStandardErrorAndStatusTwo) {
  for (const auto& [arguments, input] : std::vector<std::pair<std::string, std::string>>{
           {"describe QVANoSuchPlugIn", ""},
           {"drive -", R"({"class": "QVAInterpolationPlugIn", "steps": [{"op": "explode"}]})"},
           {"drive -", "{not json"},
           {"drive -", R"({"class": "QVAInterpolationPlugIn", "steps": [{"time": 1e999}]})"},
           {"drive /nonexistent/script.json", ""},
           {"run /nonexistent/composition.qvc", ""},
           {"run " + examples + "stopframes.qvc --set nothing=1", ""},
           {"frobnicate", ""},
           {"rtf describe /dev/zero", ""},
           {"render --interlace sideways --frames 1", ""},
           {"play --frames 1 --size 16x16 -o show.gif", ""},
           {"play --frames 1 --fps 0", ""},
           {"play --frames 1 --size 0x9", ""},
       }) {
    const QvaRun result = runQva(arguments, input);
    EXPECT_EQ(result.status, 2) << arguments;
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1)
        << arguments << ": " << result.errors;
    EXPECT_EQ(result.errors.find("internal error"), std::string::npos) << arguments << ": " << result.errors;
  }
}

TEST(QvaCommand, NamesItselfItsVersionAndUnknownCommands) {
  const QvaRun version = runQva("--version");
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.output, "qva " QVA_VERSION "\n");
  const QvaRun help = runQva("render --help");
  EXPECT_EQ(help.output.find("Usage: qva render"), help.output.find("Usage: ")) << help.output;
  const QvaRun unknown = runQva("frobnicate --now");
  EXPECT_EQ(unknown.status, 2);
  EXPECT_NE(unknown.errors.find("unknown command \"frobnicate\""), std::string::npos) << unknown.errors;
  EXPECT_NE(unknown.errors.find("render"), std::string::npos) << unknown.errors;
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
    const QvaRun result = runQva(arguments);
    EXPECT_EQ(result.status, 2) << arguments;
    EXPECT_NE(result.errors.find("line 1, column "), std::string::npos) << arguments << ": " << result.errors;
    EXPECT_NE(result.errors.find("nest more than"), std::string::npos) << arguments << ": " << result.errors;
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
  const QvaRun result = runQva("drive -", R"({"class": "QVAImageLoaderPlugIn", "steps": [)"
                                          R"({"time": 0, "inputs": {"inputPath": ")" +
                                              png + R"("}}]})");
  ASSERT_EQ(result.status, 0) << result.errors;
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
  ASSERT_EQ(pipe2(frames, O_CLOEXEC), 0);
  ASSERT_EQ(pipe2(errors, O_CLOEXEC), 0);
  const pid_t child =
      startQva({"render", "--size", "64x36", "--frames", "100000", "-o", "-"}, frames[1], errors[1]);
  ASSERT_NE(child, 0);
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
  const TemporaryFolder folder("fast");
  std::ofstream(folder / "fast.qvc") << R"({"format": "qva-composition/1", "fps": 2e6, "patches": []})";
  for (const auto& [arguments, message] : std::vector<std::pair<std::string, std::string>>{
           {"run " + (folder / "fast.qvc").string(), "the composition's frame rate of 2e+06"},
           {"render --fps 1e300 --frames 3 -o " + (folder / "unwritten.mov").string(), "--fps must be"},
           {"render --fps 1e6 --duration 1e300", "too many frames"},
           {"run " + examples + "stopframes.qvc --fps inf", "--fps must be"},
       }) {
    const QvaRun result = runQva(arguments);
    EXPECT_EQ(result.status, 2) << arguments;
    EXPECT_NE(result.errors.find(message), std::string::npos) << arguments << ": " << result.errors;
  }
}

TEST(QvaCommand, DriveAndDescribePrintJson) {
  const QvaRun drive = runQva(
      "drive -", R"({"class": "QVAInterpolationPlugIn", "steps": [{"time": 5.25}, {"op": "attributes"}]})");
  ASSERT_EQ(drive.status, 0) << drive.errors;
  const std::size_t newline = drive.output.find('\n');
  EXPECT_EQ(PropertyList::parse(drive.output.substr(0, newline))["outputs"]["outputValue"], 0.5);
  EXPECT_EQ(PropertyList::parse(drive.output.substr(newline + 1))["name"], "QVA Interpolation");

  const QvaRun describe = runQva("describe QVAStopframesPlugIn --json");
  ASSERT_EQ(describe.status, 0);
  const PropertyList description = PropertyList::parse(describe.output);
  EXPECT_EQ(description["plugInKeys"],
            PropertyList({"savedVersion", "compositionDuration", "stopframes", "enableStopframesInQVAApps"}));
  EXPECT_EQ(description["inputs"][0]["key"], "inputTrigger");
}

TEST(QvaCommand, TheExamplesRun) {
  const QvaRun stopframes = runQva("run " + examples + "stopframes.qvc --frames 30 --fps 10");
  ASSERT_EQ(stopframes.status, 0) << stopframes.errors;
  const std::string last =
      stopframes.output.substr(stopframes.output.rfind('\n', stopframes.output.size() - 2) + 1);
  const PropertyList frame = PropertyList::parse(last);
  EXPECT_EQ(frame["outputs"]["waiting"], true) << "the timeline waits at its first stop frame";
  EXPECT_EQ(frame["outputs"]["time"], 1.5);
  EXPECT_EQ(frame["outputs"]["x"], 0.0);

  const QvaRun countdown = runQva("run " + examples + "countdown.qvc --frames 2 --fps 1 --set duration=0:10");
  ASSERT_EQ(countdown.status, 0) << countdown.errors;
  EXPECT_NE(countdown.output.find("\"remaining\":\"00:09\""), std::string::npos) << countdown.output;

  const QvaRun lowerThird = runQva("run " + examples + "lower-third.qvc --frames 40 --fps 10");
  ASSERT_EQ(lowerThird.status, 0) << lowerThird.errors;
  EXPECT_NE(lowerThird.output.rfind("\"waiting\":true"), std::string::npos) << "the lower third holds on air";
}

// The layers of the example's document (as another tool reports them: the bar 1100 × 150 at (160, 820),
// the title 475 × 42 at (202, 908) on 1920 × 1080) fly in from the left to their places in host units.
TEST(QvaCommand, ThePsdLowerThirdFliesItsLayersIn) {
  const QvaRun run = runQva("run " + examples + "psd-lower-third.qvc --frames 30 --fps 10");
  ASSERT_EQ(run.status, 0) << run.errors;
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
  const TemporaryFolder folder("interlaced");
  const QvaRun result = runQva("render --size 64x36 --frames 2 --fps 25 --interlace lower -o " +
                               (folder / "video.mkv").string());
  if (result.status != 0 && result.errors.find("no OpenGL") != std::string::npos) {
    GTEST_SKIP() << result.errors;
  }
  ASSERT_EQ(result.status, 0) << result.errors;
  EXPECT_GT(std::filesystem::file_size(folder / "video.mkv"), 0u);
}

// Ctrl-C during a render stops it between frames, with the conventional status, and takes the
// unfinished video file with it.
TEST(QvaCommand, InterruptedRenderLeavesNoVideoBehind) {
  const TemporaryFolder folder("interrupted");
  const pid_t child =
      startQva({"render", "--size", "320x180", "--frames", "100000", "-o", (folder / "long.mov").string()});
  ASSERT_NE(child, 0);
  int status = 0;
  if (endsBeforeWriting(child, folder.path(), status)) {
    GTEST_SKIP() << "qva render ended before it was interrupted (no OpenGL?), status " << status;
  }
  ASSERT_FALSE(std::filesystem::is_empty(folder.path())) << "no output file appeared";
  kill(child, SIGINT);
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "ended by a signal instead of stopping";
  EXPECT_EQ(WEXITSTATUS(status), 128 + SIGINT);
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(QvaCommand, PlayStopsOnTerminationWithItsVideosWhole) {
  const TemporaryFolder folder("play-terminated");
  const std::string movie = (folder / "live.mov").string();
  const std::string lossless = (folder / "live.mkv").string();
  const pid_t child = startQva({"play", "--size", "160x90", "--fps", "25", "-o", movie, "-o", lossless});
  ASSERT_NE(child, 0);
  int status = 0;
  if (endsBeforeWriting(child, folder.path(), status)) {
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
  const TemporaryFolder folder("play-failing");
  const std::string video = (folder / "kept.mkv").string();
  const QvaRun result =
      runQva("play --size 64x36 --fps 25 --duration 1 -o 'gst:filesink location=/dev/full' -o " + video);
  if (result.errors.find("EGL") != std::string::npos || result.errors.find("OpenGL") != std::string::npos) {
    GTEST_SKIP() << result.errors;
  }
  // The failure is reported once as it happens, and again in the summary, with status 1.
  EXPECT_EQ(result.status, 1) << result.errors;
  EXPECT_NE(result.errors.find("stopped: the GStreamer pipeline"), std::string::npos) << result.errors;
  // A second at 25 frames a second; frames the clock dropped before the first was shown have nothing to
  // repeat in their place, on a busy machine.
  std::smatch written;
  ASSERT_TRUE(
      std::regex_search(result.errors, written, std::regex(R"(kept\.mkv \(ffv1\): (\d+) frames written)")))
      << result.errors;
  EXPECT_GE(std::stoi(written[1]), 12) << result.errors;
  EXPECT_LE(std::stoi(written[1]), 25) << result.errors;
  EXPECT_TRUE(std::filesystem::exists(video));
}

}  // namespace
}  // namespace qva
