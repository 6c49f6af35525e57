#include "patches/render/QVALumoRunVideoRenderer.h"

namespace qva {

std::unique_ptr<QVALumoRunVideoRenderer> QVALumoRunVideoRenderer::createWithContext(
    GLContext* /*context*/, TextureTarget /*textureType*/) {
  return std::make_unique<QVALumoRunVideoRenderer>();
}

void QVALumoRunVideoRenderer::guessColorSpaceFromAttributes(const Arguments& /*attributes*/) {}

void QVALumoRunVideoRenderer::beforeRenderWithMode(int /*mode*/, long long /*textureHeight*/,
                                                   unsigned long long /*textureFormat*/) {}

void QVALumoRunVideoRenderer::afterRender() {}

void QVALumoRunVideoRenderer::cleanUp() {}

}  // namespace qva
