#include "foundation/providers/QVAOutputImageProvider.h"

#include <epoxy/gl.h>

namespace qva {

bool QVAOutputImageProvider::render(GLContext& /*context*/) const {
  glClearColor(0, 0, 0, 0);
  glClear(GL_COLOR_BUFFER_BIT);
  return true;
}

}  // namespace qva
