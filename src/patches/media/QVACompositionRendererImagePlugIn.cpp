#include "patches/media/QVACompositionRendererImagePlugIn.h"

#include <epoxy/gl.h>

#include "foundation/providers/QVAOutputImageProvider.h"
#include "framework/ExecuteArguments.h"

namespace qva {

const PatchClass& QVACompositionRendererImagePlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVACompositionRendererImagePlugIn";
    c.name = "QVA Composition Renderer Image";
    c.description = "QVACompositionRendererImage description";
    c.executionMode = ExecutionMode::Provider;
    c.timeMode = TimeMode::TimeBase;
    c.outputs = {PortDescription::port("outputImage", PortType::Image, "Image")};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVACompositionRendererImagePlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVACompositionRendererImagePlugIn::QVACompositionRendererImagePlugIn() : QVAPlugIn(patchClass()) {}

bool QVACompositionRendererImagePlugIn::execute(ExecutionContext& context, double /*time*/,
                                                const Arguments& arguments) {
  if (!ExecuteArguments::boolean(arguments, "firstField")) {
    return true;
  }
  const auto name = static_cast<std::uint32_t>(ExecuteArguments::unsignedInteger(arguments, "texture"));
  if (name == 0) {
    setValueForOutputKey(Value(ImageRef(std::make_shared<QVAOutputImageProvider>(context.colorSpace()))),
                         "outputImage");
    return true;
  }
  // The host owns the texture and keeps it for the frame: releasing the image leaves it alone.
  const TextureView texture{name,
                            ExecuteArguments::unsignedInteger(arguments, "textureTarget") == GL_TEXTURE_2D
                                ? TextureTarget::Texture2D
                                : TextureTarget::Rectangle,
                            static_cast<int>(ExecuteArguments::number(arguments, "textureWidth")),
                            static_cast<int>(ExecuteArguments::number(arguments, "textureHeight")), true};
  setValueForOutputKey(Value(ImageRef(std::make_shared<TextureImage>(texture, [](const TextureView&) {}))),
                       "outputImage");
  return true;
}

}  // namespace qva
