#pragma once

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "foundation/gl/GLContext.h"
#include "foundation/image/ImageDecoder.h"
#include "host/DriveSession.h"
#include "patches/AllPatches.h"
#include "support/TemporaryFolder.h"

namespace qva {

// Runs drive scripts of the bundled patches with GL (skipping where there is none), writing the images
// their lines show as PNG into a scratch folder, and reads those back.
class GLDriveTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!GLContext::create().context) {
      GTEST_SKIP() << "no GL here";
    }
  }

  // Runs the script, with the files it names relative to the folder given.
  std::vector<PropertyList> drive(const PropertyList& script, const std::filesystem::path& scriptFolder) {
    DriveOptions options;
    options.registry = &bundledPatches();
    options.scriptFolder = scriptFolder.string();
    options.imagesFolder = (folder_ / "images").string();
    return DriveSession::runScript(script, options);
  }

  // The image a line shows under a key ("canvas", or an output), as its PNG decodes.
  static Bitmap image(const PropertyList& value) {
    auto decoded = ImageDecoder::decodeFile(value.at("image").at("file").get<std::string>());
    if (!decoded.bitmap) {
      throw std::runtime_error(decoded.error);
    }
    return std::move(*decoded.bitmap);
  }

  // Premultiplied B, G, R, A of a pixel, (0, 0) the top-left one.
  static std::array<int, 4> pixel(const Bitmap& bitmap, int x, int y) {
    const std::uint8_t* p = bitmap.row(y) + x * 4;
    return {p[0], p[1], p[2], p[3]};
  }

  TemporaryFolder folder_{"gl-drive"};
};

}  // namespace qva
