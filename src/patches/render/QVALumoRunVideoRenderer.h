#pragma once

#include <cstdint>
#include <memory>

#include "framework/Image.h"
#include "framework/Patch.h"

namespace qva {

// The hooks a playout host's video renderer takes around a sprite's draw call. The renderer itself
// belongs to that host; this build keeps the calls, in their order, and they do nothing.
class QVALumoRunVideoRenderer {
 public:
  static std::unique_ptr<QVALumoRunVideoRenderer> createWithContext(GLContext* context,
                                                                    TextureTarget textureType);

  void guessColorSpaceFromAttributes(const Arguments& attributes);
  void beforeRenderWithMode(int mode, long long textureHeight, unsigned long long textureFormat);
  void afterRender();
  void cleanUp();
};

}  // namespace qva
