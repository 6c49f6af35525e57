#include "host/HostClear.h"

#include <epoxy/gl.h>

namespace qva {

const PatchClass& HostClear::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "HostClear";
    c.name = "Clear";
    c.description = "Clears the canvas to a colour.";
    c.executionMode = ExecutionMode::Consumer;
    c.timeMode = TimeMode::None;
    c.inputs = {PortDescription::port("inputColor", PortType::Color, "Color", Value(Color{0, 0, 0, 0}))};
    c.create = [] { return std::make_unique<HostClear>(); };
    return c;
  }();
  return patchClass;
}

bool HostClear::execute(ExecutionContext& context, double /*time*/, const Arguments& /*arguments*/) {
  if (context.glContext() == nullptr) {
    return false;
  }
  const Color color = valueForInputKey("inputColor").colorValue().value_or(Color{0, 0, 0, 0});
  glClearColor(static_cast<float>(color.red * color.alpha), static_cast<float>(color.green * color.alpha),
               static_cast<float>(color.blue * color.alpha), static_cast<float>(color.alpha));
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  return true;
}

}  // namespace qva
