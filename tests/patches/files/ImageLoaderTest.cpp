#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "foundation/image/Bitmap.h"
#include "foundation/image/PngWriter.h"
#include "patches/files/QVAImageLoaderPlugIn.h"
#include "support/PatchDriver.h"

namespace qva {
namespace {

class ImageLoaderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = std::filesystem::temp_directory_path() / ("qva-loader-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string writePng(const std::string& name, int width, int height) {
    auto bitmap = Bitmap::allocate(width, height, Bitmap::paddedRowBytes(width));
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        std::fill_n(bitmap->row(y) + x * 4, 4, std::uint8_t{255});
      }
    }
    const auto path = (folder_ / name).string();
    EXPECT_EQ(PngWriter::write(bitmap->view(), path), "");
    return path;
  }

  std::filesystem::path folder_;
};

TEST_F(ImageLoaderTest, LoadsWithAlignedRowsAndUnitSize) {
  PatchDriver driver(std::make_unique<QVAImageLoaderPlugIn>());
  driver.context().setViewport({1920, 1080});
  driver.context().setBounds({-1, -0.5625, 2, 1.125});
  driver.set("inputPath", Value(writePng("half.png", 960, 540)));
  ASSERT_TRUE(driver.frame(0));
  EXPECT_TRUE(driver.boolean("outputImageLoaded"));
  EXPECT_EQ(driver.output("outputPixelsWide").indexValue(), 960u);
  EXPECT_EQ(driver.output("outputPixelsHigh").indexValue(), 540u);
  EXPECT_DOUBLE_EQ(driver.number("outputWidth"), 1.0);
  EXPECT_NEAR(driver.number("outputHeight"), 0.5625, 1e-7);
  EXPECT_EQ(driver.output("outputImage").imageValue()->pixelBuffer()->rowBytes, 3840u);

  driver.set("inputPath", Value(writePng("odd.png", 1001, 2)));
  ASSERT_TRUE(driver.frame(1));
  EXPECT_EQ(driver.output("outputImage").imageValue()->pixelBuffer()->rowBytes, 4016u);
  driver.set("inputPath", Value(writePng("even.png", 1000, 2)));
  ASSERT_TRUE(driver.frame(2));
  EXPECT_EQ(driver.output("outputImage").imageValue()->pixelBuffer()->rowBytes, 4000u);
}

TEST_F(ImageLoaderTest, RelativePathsResolveAgainstTheComposition) {
  writePng("near.png", 4, 4);
  PatchDriver driver(std::make_unique<QVAImageLoaderPlugIn>());
  driver.context().setCompositionPath((folder_ / "show.qvc").string());
  driver.set("inputPath", Value("near.png"));
  ASSERT_TRUE(driver.frame(0));
  EXPECT_TRUE(driver.boolean("outputImageLoaded"));
  EXPECT_EQ(driver.output("outputPixelsWide").indexValue(), 4u);
}

TEST_F(ImageLoaderTest, FailuresKeepThePreviousOutputs) {
  PatchDriver driver(std::make_unique<QVAImageLoaderPlugIn>());
  driver.set("inputPath", Value(writePng("good.png", 6, 3)));
  ASSERT_TRUE(driver.frame(0));
  const ImageRef loaded = driver.output("outputImage").imageValue();
  ASSERT_TRUE(loaded);
  {
    std::ofstream broken(folder_ / "broken.png", std::ios::binary);
    broken << "\x89PNG\r\n\x1a\n truncated";
  }
  for (const std::string& path : {(folder_ / "missing.png").string(), folder_.string(),
                                  (folder_ / "broken.png").string(), std::string()}) {
    driver.set("inputPath", Value(path));
    ASSERT_TRUE(driver.frame(1));
    EXPECT_EQ(driver.output("outputImage").imageValue(), loaded) << path;
    EXPECT_TRUE(driver.boolean("outputImageLoaded"));
    EXPECT_EQ(driver.output("outputPixelsWide").indexValue(), 6u);
  }
}

TEST_F(ImageLoaderTest, DecodesOnlyWhenThePathChanges) {
  PatchDriver driver(std::make_unique<QVAImageLoaderPlugIn>());
  const auto path = writePng("once.png", 2, 2);
  driver.set("inputPath", Value(path));
  ASSERT_TRUE(driver.frame(0));
  const ImageRef first = driver.output("outputImage").imageValue();
  ASSERT_TRUE(driver.frame(1));
  EXPECT_EQ(driver.output("outputImage").imageValue(), first);
  EXPECT_EQ(driver.patch().executionTimeForContext(driver.context(), 7.5, Arguments()), 7.5);
}

}  // namespace
}  // namespace qva
