#include "patches/render/QVASafeAreasPlugIn.h"

#include <epoxy/gl.h>

namespace qva {

namespace {

void drawFrame(const Rect& r) {
  glBegin(GL_LINE_STRIP);
  glVertex2d(r.x, r.y);
  glVertex2d(r.x + r.width, r.y);
  glVertex2d(r.x + r.width, r.y + r.height);
  glVertex2d(r.x, r.y + r.height);
  glVertex2d(r.x, r.y);
  glEnd();
}

}  // namespace

const PatchClass& QVASafeAreasPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVASafeAreasPlugIn";
    c.name = "QVA Safe Areas";
    c.description = "This patch renders the title safe area and action safe area.";
    c.executionMode = ExecutionMode::Consumer;
    c.timeMode = TimeMode::None;
    c.inputs = {
        PortDescription::port("inputShowTitleSafeArea", PortType::Boolean, "Show Title Safe Area",
                              Value(true)),
        PortDescription::port("inputShowActionSafeArea", PortType::Boolean, "Show Action Safe Area",
                              Value(true)),
    };
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVASafeAreasPlugIn>(); };
    return c;
  }();
  return patchClass;
}

Rect QVASafeAreasPlugIn::inset(const Rect& bounds, double fraction) {
  const double dx = bounds.width * fraction;
  const double dy = bounds.height * fraction;
  return {bounds.x + dx, bounds.y + dy, bounds.width - 2 * dx, bounds.height - 2 * dy};
}

bool QVASafeAreasPlugIn::execute(ExecutionContext& context, double /*time*/, const Arguments& /*arguments*/) {
  if (context.glContext() == nullptr) {
    return true;
  }
  const Rect& bounds = context.bounds();
  // Width and colour stay set in the context afterwards, as hosts of this patch expect.
  glLineWidth(2.0f);
  if (inputBoolean("inputShowActionSafeArea")) {
    glColor3d(1, 0, 0);
    drawFrame(actionSafeArea(bounds));
  }
  if (inputBoolean("inputShowTitleSafeArea")) {
    glColor3d(1, 1, 0);
    drawFrame(titleSafeArea(bounds));
  }
  return true;
}

}  // namespace qva
