#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "framework/ProcessLog.h"
#include "host/DriveSession.h"
#include "patches/AllPatches.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

std::vector<PropertyList> drive(const std::string& script, std::vector<std::string> fileRoots = {}) {
  DriveOptions options;
  options.registry = &bundledPatches();
  options.fileRoots = std::move(fileRoots);
  return DriveSession::runScript(PropertyList::parse(script), options);
}

TEST(DriveSession, FramesReportExecutionOutputsAndTheIdleAnswer) {
  const auto lines = drive(R"({"class": "QVAInterpolationPlugIn", "steps": [
      {"time": 0, "inputs": {"inputValue2": 10}}, {"time": 5.25}, {"op": "serialize"}]})");
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0]["step"], 0);
  EXPECT_EQ(lines[0]["executed"], true);
  EXPECT_EQ(lines[0]["result"], true);
  EXPECT_TRUE(lines[0]["executionTime"].is_null());
  EXPECT_EQ(lines[0]["outputs"]["outputValue"], 0.0);
  EXPECT_EQ(lines[1]["outputs"]["outputValue"], 5.0);
  EXPECT_EQ(lines[2]["settings"], PropertyList({{"savedVersion", 0}}));
  EXPECT_TRUE(lines[1]["log"].empty());
  EXPECT_TRUE(lines[1]["userInfo"].is_object());
}

TEST(DriveSession, ProcessorsWithoutTimeRunOnlyWhenAnInputChanged) {
  const auto lines = drive(R"({"class": "ConvertTimePlugIn", "steps": [
      {"time": 0, "inputs": {"inputTime": 978307200}}, {"time": 1}, {"time": 2, "force": true},
      {"time": 3, "inputs": {"inputTime": 0}}]})");
  EXPECT_EQ(lines[0]["executed"], true);
  EXPECT_EQ(lines[0]["outputs"]["outputTime"], 0.0);
  EXPECT_EQ(lines[1]["executed"], false);
  EXPECT_TRUE(lines[1]["result"].is_null());
  EXPECT_EQ(lines[2]["executed"], true);
  EXPECT_EQ(lines[3]["outputs"]["outputTime"], -978307200.0);
}

TEST(DriveSession, OutputsHoldTheirTypesInitialValueAndSettingItAgainIsNoChange) {
  const auto lines = drive(R"({"class": "ConvertTimePlugIn", "steps": [
      {"op": "start"}, {"time": 0}, {"time": 1, "inputs": {"inputTime": 0}}, {"time": 2, "inputs": {"inputTime": null}}]})");
  EXPECT_EQ(lines[1]["executed"], true);
  EXPECT_EQ(lines[2]["executed"], false) << "0 is the value an input without a default starts with";
  EXPECT_EQ(lines[3]["executed"], true) << "no value is a value of its own";

  const auto watcher = drive(R"({"class": "QVAPathWatcherPlugIn", "steps": [{"op": "ports"}, {"time": 0}]})");
  EXPECT_EQ(watcher[1]["outputs"]["outputUpdateSignal"], false);
  const auto loader =
      drive(R"({"class": "QVAImageLoaderPlugIn", "steps": [{"time": 0, "inputs": {"inputPath": ""}}]})");
  EXPECT_EQ(loader[0]["outputs"], PropertyList::parse(R"({"outputImage": null, "outputImageLoaded": false,
      "outputWidth": 0.0, "outputHeight": 0.0, "outputPixelsWide": 0, "outputPixelsHigh": 0})"));
}

TEST(DriveSession, IdlePatchesAreAskedAndTheFloatMaximumMeansOnlyOnChange) {
  const auto lines = drive(R"({"class": "QVASmoothPlugIn", "steps": [
      {"time": 0, "inputs": {"inputValue": 1}}, {"time": 1}, {"time": 2}]})");
  EXPECT_EQ(lines[0]["executed"], true);
  EXPECT_EQ(lines[2]["executionTime"], 3.4028234663852886e+38);
  EXPECT_EQ(lines[2]["executed"], false);
  EXPECT_EQ(PropertyList(3.4028234663852886e+38).dump(), "3.4028234663852886e+38");
}

TEST(DriveSession, OpsReportPortsAttributesAndFileActions) {
  const TemporaryFolder folder("drive-session");
  const std::string script = R"({"class": "QVAInterpolationPlugIn", "steps": [
      {"op": "ports"}, {"op": "attributes"},
      {"op": "fs", "action": "mkdir", "path": ")" +
                             (folder / "a").string() + R"("},
      {"op": "fs", "action": "write", "path": ")" +
                             (folder / "a/x.txt").string() + R"(", "base64": "b25lCg=="},
      {"op": "fs", "action": "remove", "path": ")" +
                             (folder / "missing").string() + R"("},
      {"op": "wait", "seconds": 0.01}, {"op": "stop"}]})";
  const auto lines = drive(script);
  const PropertyList& menu = lines[0]["inputs"][6]["attributes"]["menu"];
  EXPECT_EQ(
      lines[0]["inputs"][0],
      PropertyList::parse(
          R"({"key": "inputValue1", "type": "Number", "attributes": {"name": "Value 1", "default": 0.0}})"));
  EXPECT_EQ(lines[0]["inputs"][6]["attributes"]["max"], 12.0);
  EXPECT_EQ(menu.size(), 17u);
  EXPECT_EQ(lines[1]["name"], "QVA Interpolation");
  EXPECT_EQ(lines[1]["executionMode"], 2);
  EXPECT_EQ(lines[1]["timeMode"], 2);
  EXPECT_TRUE(lines[1]["copyright"].is_null());
  EXPECT_EQ(lines[2]["ok"], true);
  EXPECT_EQ(lines[3]["ok"], true);
  EXPECT_EQ(lines[4]["ok"], false);
  std::ifstream written(folder / "a/x.txt");
  std::string text;
  std::getline(written, text);
  EXPECT_EQ(text, "one");
}

// Scripts change files only inside the folders the host names and the temporary folder, judged after
// symbolic links; the targets outside are names that do not exist, so nothing is lost if that fails.
TEST(DriveSession, FileActionsStayInsideTheirFolders) {
  const TemporaryFolder folder("drive-confined");
  const auto fsStep = [](const std::string& action, const std::string& path, const std::string& extra = "") {
    return R"({"op": "fs", "action": ")" + action + R"(", "path": ")" + path + "\"" + extra + "}";
  };
  const auto play = [](const std::vector<std::string>& steps, std::vector<std::string> roots = {}) {
    std::string script = R"({"class": "QVAInterpolationPlugIn", "steps": [)";
    for (const std::string& step : steps) {
      script += step + (&step == &steps.back() ? "" : ", ");
    }
    return drive(script + "]}", std::move(roots));
  };
  const std::string link = (folder / "link").string();
  const std::string outside = "/nonexistent-qva-outside";
  ASSERT_FALSE(std::filesystem::exists(outside));
  const auto lines = play({fsStep("symlink", link, R"(, "to": ")" + outside + "\""), fsStep("remove", link)});
  EXPECT_EQ(lines[0]["ok"], true);
  EXPECT_EQ(lines[1]["ok"], true) << "removing a link removes the link, wherever it points";
  for (const std::string& refused :
       {fsStep("remove", "/etc/qva-never-there"), fsStep("remove", folder.path().parent_path().string()),
        fsStep("write", (folder / "../../etc/qva-never-there").string(), R"(, "text": "x")"),
        fsStep("rename", (folder / "a").string(), R"(, "to": ")" + outside + "\""),
        fsStep("write", link + "/x", R"(, "text": "x")"), fsStep("write", link, R"(, "text": "x")")}) {
    try {
      play({fsStep("symlink", link, R"(, "to": ")" + outside + "\""), refused});
      ADD_FAILURE() << refused;
    } catch (const DriveError& error) {
      EXPECT_NE(std::string(error.what()).find("step 1: fs"), std::string::npos) << error.what();
      EXPECT_NE(std::string(error.what()).find("--fs-root"), std::string::npos) << error.what();
    }
    std::filesystem::remove(link);
  }
  EXPECT_FALSE(std::filesystem::exists(outside));
  // A folder the host names serves as the temporary folder does.
  const char* temporary = std::getenv("TMPDIR");
  const std::string saved = temporary != nullptr ? temporary : "";
  setenv("TMPDIR", "/nonexistent-qva-temporary", 1);
  const std::string file = (folder / "named.txt").string();
  EXPECT_THROW(play({fsStep("write", file, R"(, "text": "x")")}), DriveError);
  EXPECT_EQ(play({fsStep("write", file, R"(, "text": "x")")}, {folder.path().string()})[0]["ok"], true);
  if (temporary != nullptr) {
    setenv("TMPDIR", saved.c_str(), 1);
  } else {
    unsetenv("TMPDIR");
  }
}

TEST(DriveSession, BadScriptsAreRefused) {
  for (
      const char* script : {
          R"([])",
          R"({"steps": []})",
          R"({"class": "NoSuchPlugIn", "steps": []})",
          R"({"class": "QVAInterpolationPlugIn"})",
          R"({"class": "QVAInterpolationPlugIn", "steps": [{"op": "explode"}]})",
          R"({"class": "QVAInterpolationPlugIn", "steps": [{"inputs": {}}]})",
          R"({"class": "QVAInterpolationPlugIn", "steps": [{"op": "wait", "seconds": -1}]})",
          R"({"class": "QVAInterpolationPlugIn", "steps": [{"op": "fs", "action": "melt", "path": "x"}]})",
          R"({"class": "QVAInterpolationPlugIn", "context": {"bounds": [1, 2]}, "steps": []})",
          R"({"class": "QVAInterpolationPlugIn", "context": {"gl": "yes"}, "steps": []})",
          R"({"class": "QVAInterpolationPlugIn", "context": {"viewport": [4294967297, 1]}, "steps": []})",
          R"({"class": "QVAInterpolationPlugIn", "steps": [{"time": 0, "force": {"now": 1}}]})",
          R"({"class": "QVAInterpolationPlugIn", "steps": [{"time": 0, "clear": [0, 0, 0, 1]}]})",
          R"({"class": "QVAInterpolationPlugIn", "steps": [{"time": 0, "canvas": true}]})",
          R"({"class": "QVAInterpolationPlugIn", "context": {"gl": true}, "steps": [{"time": 0, "clear": "red"}]})",
          R"({"class": "QVAInterpolationPlugIn", "context": {"gl": true}, "steps": [{"time": 0, "clear": null}]})",
          R"({"class": "QVAInterpolationPlugIn", "context": {"gl": true}, "steps": [{"time": 0, "canvas": 1}]})",
          R"({"class": "QVAInterpolationPlugIn", "steps": [{"op": "fs", "action": "write", "path": "/nonexistent-qva/x", "text": 5}]})",
          R"({"class": "QVAInterpolationPlugIn", "steps": [{"op": "fs", "action": "touch", "path": "/nonexistent-qva/x", "mtime": "now"}]})",
          // Unknown ports and values of the wrong kind stop the script when it reaches them.
          R"({"class": "QVAInterpolationPlugIn", "steps": [{"time": 0, "inputs": {"inputNope": 1}}]})",
          R"({"class": "QVAInterpolationPlugIn", "steps": [{"time": 0, "inputs": {"inputValue1": [1, 2]}}]})",
          // Scripts of several patches.
          R"({"class": "ConvertTimePlugIn", "patches": [{"class": "ConvertTimePlugIn"}], "steps": []})",
          R"({"patches": [], "steps": []})",
          R"({"patches": [{"settings": {}}], "steps": []})",
          R"({"patches": [{"class": "NoSuchPlugIn"}], "steps": []})",
          R"({"patches": [{"class": "ConvertTimePlugIn"}], "steps": [{"time": 0, "patch": 1}]})",
          R"({"class": "ConvertTimePlugIn", "steps": [{"time": 0, "patch": -1}]})",
          R"({"class": "ConvertTimePlugIn", "steps": [{"op": "wait", "seconds": 1, "until": "forever"}]})",
      }) {
    EXPECT_THROW(drive(script), DriveError) << script;
  }
}

TEST(DriveSession, SpecialNumbersTravelAsStrings) {
  const auto lines = drive(R"({"class": "QVAInterpolationPlugIn", "steps": [
      {"time": 0, "inputs": {"inputValue1": "nan", "inputValue2": "inf"}}]})");
  EXPECT_EQ(lines[0]["outputs"]["outputValue"], "nan");
}

TEST(DriveSession, ImagesAreDescribedBySizeRowLengthAndDigest) {
  DriveImages images(".", std::nullopt);
  const PropertyList solid = PropertyList::parse(R"({"solid": [1, 0, 0, 0.5], "width": 2, "height": 1})");
  const ImageRef image = images.imageForValue(solid);
  EXPECT_EQ(images.imageForValue(solid), image) << "an identical value keeps the same image";
  const PropertyList description = images.describe(image)["image"];
  EXPECT_EQ(description["rowBytes"], 8);
  // Two premultiplied pixels 00 00 80 80, digest computed independently.
  EXPECT_EQ(description["sha256"], "dbd985297e87cf1cd9f721e202a6b97d5dec2b8eda034acebac6517a9ef17dda");
  EXPECT_EQ(image->pixelBuffer()->bytes[2], 0x80);
  EXPECT_EQ(image->pixelBuffer()->bytes[3], 0x80);
  EXPECT_THROW(images.imageForValue(PropertyList::parse(R"({"solid": [1, 0, 0], "width": 2})")),
               std::invalid_argument);
  EXPECT_THROW(images.imageForValue(PropertyList::parse(R"({"solid": [1, 0, 0, 1], "width": 0})")),
               std::invalid_argument);
  // A size past the integers' range is refused, not wrapped round to a small one.
  EXPECT_THROW(images.imageForValue(PropertyList::parse(R"({"solid": [1, 0, 0, 1], "width": 4294967297})")),
               std::invalid_argument);
}

TEST(DriveSeveralPatches, StepsActOnTheNamedPatchAndLinesNameIt) {
  const auto lines = drive(R"({"patches": [
      {"class": "ConvertTimePlugIn"},
      {"class": "QVAInterpolationPlugIn", "settings": {"savedVersion": 3}}], "steps": [
      {"time": 0, "inputs": {"inputTime": 978307200}}, {"time": 5.25, "patch": 1, "inputs": {"inputValue2": 10}},
      {"op": "serialize", "patch": 1}, {"op": "stop"}, {"op": "start"}]})");
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[0]["patch"], 0);
  EXPECT_EQ(lines[0]["outputs"]["outputTime"], 0.0);
  EXPECT_FALSE(lines[0]["outputs"].contains("outputValue"));
  EXPECT_EQ(lines[1]["patch"], 1);
  EXPECT_EQ(lines[1]["outputs"]["outputValue"], 5.0);
  EXPECT_EQ(lines[2]["patch"], 1);
  EXPECT_TRUE(lines[2]["settings"].contains("savedVersion"));
  EXPECT_EQ(lines[4]["result"], true) << "start without \"patch\" starts every patch";

  // A script with one "class" prints no patch index.
  EXPECT_FALSE(drive(R"({"class": "ConvertTimePlugIn", "steps": [{"time": 0}]})")[0].contains("patch"));
}

TEST(DriveSeveralPatches, WaitUntilADeliveryEndsAtOnceOrSaysThatNoneCame) {
  const auto start = std::chrono::steady_clock::now();
  const auto lines = drive(
      R"({"class": "ConvertTimePlugIn", "steps": [{"op": "wait", "seconds": 0.2, "until": "delivery"}]})");
  EXPECT_EQ(lines[0]["delivered"], false);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
}

}  // namespace
}  // namespace qva
