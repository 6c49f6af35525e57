#include <epoxy/gl.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <stdexcept>

#include "foundation/gl/GLContext.h"
#include "foundation/image/ImageDecoder.h"
#include "foundation/image/PngWriter.h"
#include "host/DriveSession.h"
#include "host/DriveTextures.h"
#include "patches/AllPatches.h"
#include "support/TemporaryFolder.h"
#include "support/TestMovies.h"

namespace qva {
namespace {

// Scripts that hand patches video: textures in the per-frame arguments, and movies.
class DriveVideoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!GLContext::create().context) {
      GTEST_SKIP() << "no GL here";
    }
  }

  std::vector<PropertyList> drive(const PropertyList& script) {
    DriveOptions options;
    options.registry = &bundledPatches();
    options.scriptFolder = folder_.path().string();
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

  static std::array<int, 4> pixel(const Bitmap& bitmap, int x, int y) {
    const std::uint8_t* p = bitmap.row(y) + x * 4;
    return {p[0], p[1], p[2], p[3]};
  }

  TemporaryFolder folder_{"drive-video"};
};

TEST_F(DriveVideoTest, TextureArgumentsReachThePatchTopRowFirst) {
  // Red over blue, as a 1 × 2 picture.
  const std::uint8_t bgra[] = {0, 0, 255, 255, 255, 0, 0, 255};
  ASSERT_EQ(PngWriter::write(PixelBufferView{1, 2, 4, bgra}, (folder_ / "redOverBlue.png").string()), "");
  const PropertyList picture = {{"glTexture", {{"imageFile", "redOverBlue.png"}}}, {"target", "rectangle"}};
  const PropertyList script = {
      {"class", "QVACompositionRendererPatchPlugIn"},
      {"context", {{"gl", true}, {"viewport", {4U, 4U}}, {"bounds", {-1, -1, 2, 2}}}},
      {"steps",
       {{{"time", 0},
         {"inputs", {{"inputWidth", 2}, {"inputHeight", 2}}},
         {"arguments",
          {{"texture", picture},
           {"textureTarget", 34037},
           {"textureWidth", 1},
           {"textureHeight", 2},
           {"opacity", 1},
           {"alpha", 1}}},
         {"canvas", true}},
        {{"time", 0.04},
         {"clear", {0, 0, 0, 0}},
         {"arguments",
          {{"texture", {{"glTexture", {{"solid", {0, 1, 0, 1}}, {"width", 2}, {"height", 2}}}}},
           {"textureTarget", 3553},
           {"opacity", 1},
           {"alpha", 1}}},
         {"canvas", true}}}}};
  const std::vector<PropertyList> lines = drive(script);
  ASSERT_EQ(lines.size(), 2U);
  const Bitmap first = image(lines[0].at("canvas"));
  EXPECT_EQ(pixel(first, 1, 0), (std::array<int, 4>{0, 0, 255, 255}));
  EXPECT_EQ(pixel(first, 1, 3), (std::array<int, 4>{255, 0, 0, 255}));
  EXPECT_EQ(pixel(image(lines[1].at("canvas")), 2, 2), (std::array<int, 4>{0, 255, 0, 255}));
}

TEST_F(DriveVideoTest, TheSameTextureValueNamesTheSameTexture) {
  auto gl = GLContext::create();
  ASSERT_TRUE(gl.context);
  DriveImages images(folder_.path().string(), std::nullopt);
  DriveTextures textures(images);
  const PropertyList red = {{"glTexture", {{"solid", {1, 0, 0, 1}}, {"width", 4}, {"height", 2}}}};
  PropertyList redRectangle = red;
  redRectangle["target"] = "rectangle";
  const PropertyList first =
      textures.resolve({{"texture", red}, {"nested", {{"list", {1, red}}}}, {"opacity", 1}});
  const PropertyList second = textures.resolve({{"texture", red}, {"other", redRectangle}});
  EXPECT_EQ(first["texture"], second["texture"]);
  EXPECT_EQ(first["nested"]["list"][1], first["texture"]);
  EXPECT_NE(second["other"], second["texture"]);
  EXPECT_EQ(first["opacity"], 1);
  GLint width = 0;
  glBindTexture(GL_TEXTURE_RECTANGLE, second["other"].get<GLuint>());
  glGetTexLevelParameteriv(GL_TEXTURE_RECTANGLE, 0, GL_TEXTURE_WIDTH, &width);
  EXPECT_EQ(width, 4);
}

TEST_F(DriveVideoTest, TextureArgumentsNeedGLAndATarget) {
  const PropertyList texture = {{"glTexture", {{"solid", {1, 0, 0, 1}}, {"width", 2}, {"height", 2}}}};
  PropertyList script = {{"class", "QVACompositionRendererImagePlugIn"},
                         {"steps", {{{"time", 0}, {"arguments", {{"texture", texture}}}}}}};
  try {
    drive(script);
    ADD_FAILURE() << "a texture without GL ran";
  } catch (const DriveError& error) {
    EXPECT_STREQ(error.what(), "step 0: a glTexture argument needs a GL context (context \"gl\": true)");
  }
  script["context"] = {{"gl", true}};
  PropertyList badTarget = texture;
  badTarget["target"] = "3D";
  script["steps"][0]["arguments"]["texture"] = badTarget;
  EXPECT_THROW(drive(script), DriveError);
}

TEST_F(DriveVideoTest, MoviePlayerShowsTheFrameOfEachTime) {
  if (!TestMovies::available()) {
    GTEST_SKIP() << "no ffmpeg command";
  }
  ASSERT_EQ(TestMovies::make(folder_ / "clip.mov", {30, "30000/1001", "-c:v prores_ks -profile:v 0"}), "");
  PropertyList steps = PropertyList::array();
  const std::vector<double> times = {0, 0.5, 0.25, 0.9, 0.1, 2.0};
  for (const double time : times) {
    steps.push_back({{"time", time}, {"inputs", {{"inputMoviePath", "clip.mov"}, {"inputLoop", false}}}});
  }
  const PropertyList script = {
      {"class", "QVAMoviePlayerPlugIn"},
      {"context", {{"gl", true}, {"compositionPath", (folder_ / "show.qvc").string()}}},
      {"steps", steps}};
  const std::vector<PropertyList> lines = drive(script);
  ASSERT_EQ(lines.size(), times.size());
  const double rate = 30000.0 / 1001;
  for (std::size_t i = 0; i < times.size(); ++i) {
    const Bitmap frame = image(lines[i].at("outputs").at("outputImage"));
    const int expected = std::min(29, static_cast<int>((times[i] + 0.25 / rate) * rate));
    EXPECT_EQ(TestMovies::indexOf(frame.row(0), frame.rowBytes()), expected) << times[i];
    EXPECT_TRUE(lines[i].at("processLog").empty());
  }
  EXPECT_EQ(lines[0].at("outputs").at("outputWidth"), TestMovies::kWidth);
}

}  // namespace
}  // namespace qva
