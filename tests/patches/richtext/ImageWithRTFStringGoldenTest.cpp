// Image With RTF String against reference images in tests/data/richtext. After a deliberate change of
// the drawing, look at the new images and write them over the old ones with:
//   QVA_UPDATE_GOLDEN=1 ctest --test-dir build/default -R ImageWithRTFStringGolden
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>

#include "foundation/image/ImageDecoder.h"
#include "foundation/image/PngWriter.h"
#include "patches/richtext/Image_With_RTF_StringPlugIn.h"
#include "patches/richtext/RTF_StylePlugIn.h"
#include "support/PatchDriver.h"

namespace qva {
namespace {

// The project's font configuration, also when the executable runs outside CTest.
const bool kProjectFonts = setenv("FONTCONFIG_FILE", QVA_SOURCE_DIR "/data/fonts/fonts.conf", 0) == 0;

// A channel may differ by this much (antialiasing, and the straight alpha of PNG files)...
constexpr int kChannelTolerance = 8;
// ...and this share of the pixels by more.
constexpr double kPixelTolerance = 0.002;

struct Scene {
  const char* name;
  std::function<void(PatchDriver&)> setUp;
};

void PrintTo(const Scene& scene, std::ostream* out) {
  *out << scene.name;
}

std::string styleString(const std::function<void(RTF_StylePlugIn::Settings&)>& edit) {
  RTF_StylePlugIn::Settings settings;
  edit(settings);
  return RTF_StylePlugIn::styleString(settings).value();
}

const std::vector<Scene>& scenes() {
  static const std::vector<Scene> scenes{
      {"default-style", [](PatchDriver&) {}},
      {"stroke-and-shadow",
       [](PatchDriver& driver) {
         driver.set("inputString", "ON AIR");
         driver.set("inputRTFStyle", styleString([](RTF_StylePlugIn::Settings& s) {
                      s.fontName = "Arial";
                      s.fontSize = 64;
                      s.fontColor = Color{1, 0.85, 0.1, 1};
                      s.strokeWidth = -4;
                      s.strokeColor = Color{0.1, 0.1, 0.4, 1};
                      s.shadowBlurRadius = 6;
                      s.shadowOffsetX = 4;
                      s.shadowOffsetY = -4;
                      s.shadowOpacity = 0.8;
                    }));
         driver.set("inputWidth", 320u);
         driver.set("inputHeight", 100u);
       }},
      {"centred-wrap",
       [](PatchDriver& driver) {
         driver.set("inputString", "A longer headline that wraps over several centred lines");
         driver.set("inputRTFStyle", styleString([](RTF_StylePlugIn::Settings& s) {
                      s.fontName = "Times";
                      s.fontSize = 30;
                      s.fontColor = Color{1, 1, 1, 1};
                      s.shadowBlurRadius = 2;
                    }));
         driver.set("inputWidth", 260u);
         driver.set("inputHorizontalAlignment", 1u);
       }},
      {"truncate-tail",
       [](PatchDriver& driver) {
         driver.set("inputString", "Breaking news: the text goes on far beyond the edge of its box");
         driver.set("inputRTFStyle", styleString([](RTF_StylePlugIn::Settings& s) {
                      s.fontName = "Helvetica";
                      s.fontSize = 24;
                      s.fontColor = Color{0.2, 0.8, 1, 1};
                      s.useShadow = false;
                      s.underlineStyle = 1;
                      s.underlineColor = Color{0.9, 0.2, 0.2, 0.75};
                    }));
         driver.set("inputWidth", 300u);
         driver.set("inputHeight", 40u);
         driver.set("inputHorizontalAlignment", 0u);
         driver.set("inputLineBreakMode", 5u);
       }},
  };
  return scenes;
}

class ImageWithRTFStringGolden : public testing::TestWithParam<Scene> {};

TEST_P(ImageWithRTFStringGolden, MatchesTheReferenceImage) {
  PatchDriver driver(std::make_unique<Image_With_RTF_StringPlugIn>());
  GetParam().setUp(driver);
  ASSERT_TRUE(driver.frame(0));
  const ImageRef image = driver.output("outputImage").imageValue();
  ASSERT_TRUE(image);
  const PixelBufferView drawn = image->pixelBuffer().value();
  const std::filesystem::path reference =
      std::filesystem::path(QVA_TEST_DATA_DIR) / "richtext" / (std::string(GetParam().name) + ".png");

  if (std::getenv("QVA_UPDATE_GOLDEN") != nullptr) {
    std::filesystem::create_directories(reference.parent_path());
    ASSERT_EQ(PngWriter::write(drawn, reference.string()), "");
    GTEST_SKIP() << "wrote " << reference;
  }
  ImageDecoder::Result decoded = ImageDecoder::decodeFile(reference.string());
  ASSERT_TRUE(decoded.bitmap) << reference << ": " << decoded.error;
  const PixelBufferView expected = decoded.bitmap->view();
  ASSERT_EQ(drawn.width, expected.width);
  ASSERT_EQ(drawn.height, expected.height);

  std::size_t differing = 0;
  int largest = 0;
  for (int y = 0; y < drawn.height; ++y) {
    const std::uint8_t* a = drawn.bytes + y * drawn.rowBytes;
    const std::uint8_t* b = expected.bytes + y * expected.rowBytes;
    for (int x = 0; x < drawn.width * 4; x += 4) {
      int difference = 0;
      for (int c = 0; c < 4; ++c) {
        difference = std::max(difference, std::abs(a[x + c] - b[x + c]));
      }
      largest = std::max(largest, difference);
      differing += difference > kChannelTolerance ? 1 : 0;
    }
  }
  const double share = static_cast<double>(differing) / (static_cast<double>(drawn.width) * drawn.height);
  EXPECT_LE(share, kPixelTolerance) << differing << " pixels differ, by up to " << largest;
}

INSTANTIATE_TEST_SUITE_P(Scenes, ImageWithRTFStringGolden, testing::ValuesIn(scenes()),
                         [](const testing::TestParamInfo<Scene>& param) {
                           std::string name = param.param.name;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

}  // namespace
}  // namespace qva
