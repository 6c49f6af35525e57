#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "foundation/image/Bitmap.h"
#include "foundation/image/PngWriter.h"
#include "patches/files/QVAImageLoaderPlugIn.h"
#include "support/PatchDriver.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

class ImageLoaderTest : public ::testing::Test {
 protected:
  std::string writePng(const std::string& name, int width, int height) {
    auto bitmap = Bitmap::allocate(width, height, Bitmap::paddedRowBytes(width));
    for (int y = 0; y < height; ++y) {
      std::fill_n(bitmap->row(y), width * 4, std::uint8_t{255});
    }
    const auto path = (folder_ / name).string();
    EXPECT_EQ(PngWriter::write(bitmap->view(), path), "");
    return path;
  }

  TemporaryFolder folder_{"loader"};
  PatchDriver driver_{std::make_unique<QVAImageLoaderPlugIn>()};
};

TEST_F(ImageLoaderTest, LoadsWithAlignedRowsAndUnitSize) {
  driver_.context().setViewport({1920, 1080});
  driver_.context().setBounds({-1, -0.5625, 2, 1.125});
  driver_.set("inputPath", Value(writePng("half.png", 960, 540)));
  ASSERT_TRUE(driver_.frame(0));
  EXPECT_TRUE(driver_.boolean("outputImageLoaded"));
  EXPECT_EQ(driver_.output("outputPixelsWide").indexValue(), 960u);
  EXPECT_EQ(driver_.output("outputPixelsHigh").indexValue(), 540u);
  EXPECT_DOUBLE_EQ(driver_.number("outputWidth"), 1.0);
  EXPECT_NEAR(driver_.number("outputHeight"), 0.5625, 1e-7);
  EXPECT_EQ(driver_.output("outputImage").imageValue()->pixelBuffer()->rowBytes, 3840u);

  driver_.set("inputPath", Value(writePng("odd.png", 1001, 2)));
  ASSERT_TRUE(driver_.frame(1));
  EXPECT_EQ(driver_.output("outputImage").imageValue()->pixelBuffer()->rowBytes, 4016u);
  driver_.set("inputPath", Value(writePng("even.png", 1000, 2)));
  ASSERT_TRUE(driver_.frame(2));
  EXPECT_EQ(driver_.output("outputImage").imageValue()->pixelBuffer()->rowBytes, 4000u);
}

TEST_F(ImageLoaderTest, RelativePathsResolveAgainstTheComposition) {
  writePng("near.png", 4, 4);
  driver_.context().setCompositionPath((folder_ / "show.qvc").string());
  driver_.set("inputPath", Value("near.png"));
  ASSERT_TRUE(driver_.frame(0));
  EXPECT_TRUE(driver_.boolean("outputImageLoaded"));
  EXPECT_EQ(driver_.output("outputPixelsWide").indexValue(), 4u);
}

TEST_F(ImageLoaderTest, FailuresKeepThePreviousOutputs) {
  driver_.set("inputPath", Value(writePng("good.png", 6, 3)));
  ASSERT_TRUE(driver_.frame(0));
  const ImageRef loaded = driver_.output("outputImage").imageValue();
  ASSERT_TRUE(loaded);
  {
    std::ofstream broken(folder_ / "broken.png", std::ios::binary);
    broken << "\x89PNG\r\n\x1a\n truncated";
  }
  for (const std::string& path : {(folder_ / "missing.png").string(), folder_.path().string(),
                                  (folder_ / "broken.png").string(), std::string()}) {
    driver_.set("inputPath", Value(path));
    ASSERT_TRUE(driver_.frame(1));
    EXPECT_EQ(driver_.output("outputImage").imageValue(), loaded) << path;
    EXPECT_TRUE(driver_.boolean("outputImageLoaded"));
    EXPECT_EQ(driver_.output("outputPixelsWide").indexValue(), 6u);
  }
}

TEST_F(ImageLoaderTest, DecodesOnlyWhenThePathChanges) {
  const auto path = writePng("once.png", 2, 2);
  driver_.set("inputPath", Value(path));
  ASSERT_TRUE(driver_.frame(0));
  const ImageRef first = driver_.output("outputImage").imageValue();
  ASSERT_TRUE(driver_.frame(1));
  EXPECT_EQ(driver_.output("outputImage").imageValue(), first);
  EXPECT_EQ(driver_.patch().executionTimeForContext(driver_.context(), 7.5, Arguments()), 7.5);
}

}  // namespace
}  // namespace qva
