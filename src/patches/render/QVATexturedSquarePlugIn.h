#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "foundation/gl/DeinterlacingPass.h"
#include "foundation/gl/Framebuffer.h"
#include "foundation/gl/MipmapFilter.h"
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

  std::uint32_t textureName() const { return _target ? _target->texture().name : 0; }
  std::uint32_t fboWidth() const { return _target ? static_cast<std::uint32_t>(_target->width()) : 0; }
  std::uint32_t fboHeight() const { return _target ? static_cast<std::uint32_t>(_target->height()) : 0; }
  float aspectRatio() const { return _aspectRatio; }
  std::int32_t maxAnisotropy() const { return _maxAnisotropy; }
  float maxLODbias() const { return _maxLODbias; }
  // The bake of the texture's filter the last frame drew (see MipmapFilter), or null.
  const PrefilteredTexture* drewPrefiltered() const { return _drewPrefiltered; }

 private:
  // The patch's texture, the size of the image, and the framebuffer that draws into it.
  std::optional<Framebuffer> _target;
  float _aspectRatio = 0;
  std::int32_t _maxAnisotropy = 0;
  float _maxLODbias = 0;
  DeinterlacingPass _deinterlacing;
  MipmapFilter _mipmaps;
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
  const PrefilteredTexture* _drewPrefiltered = nullptr;
  // Drops the bake and what the frames before said about the quad, as a new texture needs.
  void forgetPrefiltered();
};

}  // namespace qva
