#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "foundation/gl/GLContext.h"
#include "foundation/image/ImageDecoder.h"
#include "host/DriveImages.h"
#include "host/DriveSession.h"
#include "patches/AllPatches.h"

namespace qva {
namespace {

// `qva drive` with "gl": true: patches get the GL context, images that only exist as textures are read
// back for their digest, and --images writes them as PNG.
TEST(DriveGLTest, TextureImagesAreReadBackAndWritten) {
  if (!GLContext::create().context) {
    GTEST_SKIP() << "no GL here";
  }
  const auto folder = std::filesystem::temp_directory_path() / ("qva-drive-gl-" + std::to_string(getpid()));
  DriveOptions options;
  options.registry = &bundledPatches();
  options.scriptFolder = QVA_TEST_DATA_DIR;
  options.imagesFolder = folder.string();
  const auto lines = DriveSession::runScript(PropertyList::parse(R"({
    "class": "QVADelayPlugIn", "context": {"gl": true, "viewport": [64, 36]}, "settings": {"typeIndex": 5},
    "steps": [{"time": 0, "inputs": {"inputDelay": 0, "inputValue": {"imageFile": "image/pattern.png"}}}]})"),
                                             options);
  ASSERT_EQ(lines.size(), 1u);
  const PropertyList& image = lines[0]["outputs"]["outputValue"]["image"];
  ASSERT_TRUE(image.is_object()) << lines[0].dump();
  EXPECT_EQ(image["width"], 5);
  // The texture round trip keeps every pixel of the decoded file.
  const auto decoded = ImageDecoder::decodeFile(std::string(QVA_TEST_DATA_DIR) + "/image/pattern.png");
  ASSERT_TRUE(decoded.bitmap);
  EXPECT_EQ(image["sha256"], DriveImages::visibleBytesDigest(decoded.bitmap->view()));
  ASSERT_TRUE(image.contains("file"));
  EXPECT_TRUE(std::filesystem::exists(image["file"].get<std::string>()));
  std::filesystem::remove_all(folder);
}

TEST(DriveGLTest, UndecodableImageFilesAreScriptErrors) {
  DriveOptions options;
  options.registry = &bundledPatches();
  options.scriptFolder = QVA_TEST_DATA_DIR;
  EXPECT_THROW(DriveSession::runScript(PropertyList::parse(R"({
    "class": "QVADelayPlugIn", "settings": {"typeIndex": 5},
    "steps": [{"time": 0, "inputs": {"inputValue": {"imageFile": "image/missing.png"}}}]})"),
                                       options),
               DriveError);
}

}  // namespace
}  // namespace qva
