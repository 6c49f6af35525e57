#include <epoxy/gl.h>
#include <gtest/gtest.h>

#include "foundation/image/PngWriter.h"
#include "host/DriveTextures.h"
#include "support/GLDriveTest.h"
#include "support/TestMovies.h"

namespace qva {
namespace {

// Scripts that hand patches video: textures in the per-frame arguments, and movies.
class DriveVideoTest : public GLDriveTest {
 protected:
  std::vector<PropertyList> drive(const PropertyList& script) {
    return GLDriveTest::drive(script, folder_.path());
  }
};

TEST_F(DriveVideoTest, TextureArgumentsReachThePatchTopRowFirst) {
  // Red over blue, as a 1 × 2 picture.
  const std::uint8_t bgra[] = {0, 0, 255, 255, 255, 0, 0, 255};
  ASSERT_EQ(PngWriter::write(PixelBufferView{1, 2, 4, bgra}, (folder_ / "redOverBlue.png").string()), "");
  const std::vector<PropertyList> lines = drive(PropertyList::parse(R"({
    "class": "QVACompositionRendererPatchPlugIn",
    "context": {"gl": true, "viewport": [4, 4], "bounds": [-1, -1, 2, 2]},
    "steps": [
      {"time": 0, "inputs": {"inputWidth": 2, "inputHeight": 2}, "canvas": true,
       "arguments": {"texture": {"glTexture": {"imageFile": "redOverBlue.png"}, "target": "rectangle"},
                     "textureTarget": 34037, "textureWidth": 1, "textureHeight": 2, "opacity": 1, "alpha": 1}},
      {"time": 0.04, "clear": [0, 0, 0, 0], "canvas": true,
       "arguments": {"texture": {"glTexture": {"solid": [0, 1, 0, 1], "width": 2, "height": 2}},
                     "textureTarget": 3553, "opacity": 1, "alpha": 1}}]})"));
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
  // The first frame starts opening the movie, which shows once the opening has delivered.
  PropertyList steps =
      PropertyList::array({{{"time", 0}, {"inputs", {{"inputMoviePath", "clip.mov"}, {"inputLoop", false}}}},
                           {{"op", "wait"}, {"seconds", 10}, {"until", "delivery"}}});
  const std::vector<double> times = {0, 0.5, 0.25, 0.9, 0.1, 2.0};
  for (const double time : times) {
    steps.push_back({{"time", time}});
  }
  const PropertyList script = {
      {"class", "QVAMoviePlayerPlugIn"},
      {"context", {{"gl", true}, {"compositionPath", (folder_ / "show.qvc").string()}}},
      {"steps", steps}};
  const std::vector<PropertyList> lines = drive(script);
  ASSERT_EQ(lines.size(), times.size() + 2);
  EXPECT_TRUE(lines[0].at("outputs").at("outputImage").is_null());
  EXPECT_EQ(lines[1].at("delivered"), true);
  const double rate = 30000.0 / 1001;
  for (std::size_t i = 0; i < times.size(); ++i) {
    const PropertyList& line = lines[i + 2];
    const Bitmap frame = image(line.at("outputs").at("outputImage"));
    const int expected = std::min(29, static_cast<int>((times[i] + 0.25 / rate) * rate));
    EXPECT_EQ(TestMovies::indexOf(frame.row(0), frame.rowBytes()), expected) << times[i];
    EXPECT_TRUE(line.at("processLog").empty());
  }
  EXPECT_EQ(lines[2].at("outputs").at("outputWidth"), TestMovies::kWidth);
}

}  // namespace
}  // namespace qva
