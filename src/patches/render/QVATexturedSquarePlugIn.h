#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "foundation/gl/PrefilteredTexture.h"
#include "framework/Patch.h"
#include "patches/render/QVALumoRunVideoRenderer.h"

namespace qva {

// "QVA Sprite": draws an image as a textured quad into the host's GL scene. The image is first copied
// into the patch's own mipmapped texture, through a shader that separates the fields of interlaced
// material so that scaling never mixes lines of different instants, and an optional mask replaces its
// alpha. The patch derives from the host's base directly.
class QVATexturedSquarePlugIn final : public Patch {
 public:
  static const PatchClass& patchClass();
  static const char* vertexShaderSource();
  static const char* fragmentShaderSource();

  QVATexturedSquarePlugIn();
  ~QVATexturedSquarePlugIn() override;

  void enableExecution(ExecutionContext& context) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
  void stopExecution(ExecutionContext& context) override;

  // Renders the image (and the mask's alpha) into the patch's texture; false when the image has no
  // texture, which leaves the previous content. Images are immutable, so the pass is skipped while
  // the image, mask, field and filtering are those of the texture's last pass.
  bool createTexture(ExecutionContext& context, const std::string& colorSpace, const ImageRef& image,
                     const ImageRef& mask, const Rect& bounds, bool fieldEven);
  // One quad from (0, 0) to (width, height), the texture's top row at the top.
  static void renderQuad(double height, double width);

  static void printOGLError(const char* file, int line);
  static int getUniLoc(unsigned program, const char* name);
  static void printInfoLog(unsigned object, const char* file, int line);

  std::uint32_t textureName() const { return _textureName; }
  std::uint32_t fboWidth() const { return _fboWidth; }
  std::uint32_t fboHeight() const { return _fboHeight; }
  float aspectRatio() const { return _aspectRatio; }
  std::int32_t maxAnisotropy() const { return _maxAnisotropy; }
  float maxLODbias() const { return _maxLODbias; }
  // The bake of the texture's filter the last frame drew (see PrefilteredTexture), or null.
  const PrefilteredTexture* drewPrefiltered() const { return _drewPrefiltered; }

 private:
  std::uint32_t _textureName = 0;
  std::uint32_t _fboName = 0;
  std::uint32_t _oldfboname = 0;
  std::uint32_t _fboWidth = 0;
  std::uint32_t _fboHeight = 0;
  float _aspectRatio = 0;
  std::int32_t _maxAnisotropy = 0;
  float _maxLODbias = 0;
  unsigned vs = 0;
  unsigned fs = 0;
  unsigned sp = 0;
  std::unique_ptr<QVALumoRunVideoRenderer> videoRenderer;

  // What the texture holds now; an empty image means nothing valid.
  struct Prepared {
    ImageRef image;
    ImageRef mask;
    bool interlaced = false;
    bool fieldEven = false;
    bool mipmapped = false;
    bool operator==(const Prepared&) const = default;
  };
  Prepared _prepared;

  // Sets the mipmapped texture's filtering for this frame's quad (w × h): the texture's trilinear
  // filter baked at a level of detail the quad keeps (see PrefilteredTexture), or null where the
  // texture itself is to be drawn.
  const PrefilteredTexture* filterMipmaps(double w, double h);
  std::optional<PrefilteredTexture> _prefiltered;
  // The last frame's level of detail and window rows, while the texture stays the same.
  struct Steadiness {
    std::optional<double> levelOfDetail;
    std::optional<PrefilteredTexture::Rows> rows;
  };
  Steadiness _steady;
  const PrefilteredTexture* _drewPrefiltered = nullptr;
  // Drops the bake and what the frames before said about the quad, as a new texture needs.
  void forgetPrefiltered();
};

}  // namespace qva
