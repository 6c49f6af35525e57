#include "patches/psd/QVAPSDLayerPlugIn.h"

#include <cairo.h>

#include <cmath>

#include "foundation/image/Bitmap.h"
#include "framework/QVAGreeter.h"
#include "framework/Structure.h"

namespace qva {

namespace {

const std::string kViewerTitleSuffix = " - Viewer";

struct Size {
  double width = 0;
  double height = 0;
};

double member(const Structure& layer, const std::string& key) {
  const Value* value = layer.find(key);
  return value != nullptr ? value->numberValue() : 0.0;
}

bool flag(const Structure& layer, const std::string& key) {
  const Value* value = layer.find(key);
  return value != nullptr && value->booleanValue();
}

double ratio(double numerator, double denominator) {
  return denominator != 0 ? numerator / denominator : 0.0;
}

// The picture drawn source-over into a transparent frame of the (truncated) size, scaled about the
// frame's top-left corner and placed with its top-left corner at (left, top) before scaling.
ImageRef drawFrame(const PixelBufferView& picture, Size frame, double scaleX, double scaleY, double left,
                   double top) {
  const auto width = static_cast<int>(frame.width);
  const auto height = static_cast<int>(frame.height);
  if (width <= 0 || height <= 0 || !std::isfinite(frame.width) || !std::isfinite(frame.height)) {
    return nullptr;
  }
  std::optional<Bitmap> bitmap =
      Bitmap::allocate(width, height, Bitmap::paddedRowBytes(static_cast<std::size_t>(width)));
  if (!bitmap) {
    return nullptr;
  }
  if (picture.width > 0 && picture.height > 0 && scaleX > 0 && scaleY > 0 && std::isfinite(scaleX) &&
      std::isfinite(scaleY)) {
    cairo_surface_t* target = cairo_image_surface_create_for_data(
        bitmap->bytes(), CAIRO_FORMAT_ARGB32, width, height, static_cast<int>(bitmap->rowBytes()));
    // Cairo only reads the source.
    cairo_surface_t* source = cairo_image_surface_create_for_data(
        const_cast<std::uint8_t*>(picture.bytes), CAIRO_FORMAT_ARGB32, picture.width, picture.height,
        static_cast<int>(picture.rowBytes));
    cairo_t* cr = cairo_create(target);
    cairo_scale(cr, scaleX, scaleY);
    cairo_set_source_surface(cr, source, left, top);
    cairo_paint(cr);
    cairo_destroy(cr);
    cairo_surface_destroy(source);
    cairo_surface_flush(target);
    cairo_surface_destroy(target);
  }
  return std::move(*bitmap).toImage();
}

}  // namespace

const PatchClass& QVAPSDLayerPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAPSDLayerPlugIn";
    c.name = "QVA PSD Layer";
    c.description = "This patch provides convenient access to a PSD Layer's data.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = {PortDescription::port("inputPSDLayer", PortType::Structure, "PSD Layer")};
    c.outputs = {
        PortDescription::port("outputIsVisible", PortType::Boolean, "Is Visible"),
        PortDescription::port("outputOpacity", PortType::Number, "Opacity"),
        PortDescription::port("outputName", PortType::String, "Name"),
        PortDescription::port("outputX", PortType::Number, "X Position"),
        PortDescription::port("outputY", PortType::Number, "Y Position"),
        PortDescription::port("outputWidth", PortType::Number, "Width"),
        PortDescription::port("outputHeight", PortType::Number, "Height"),
        PortDescription::port("outputImage", PortType::Image, "Image"),
    };
    c.sortedPropertyPortKeys =
        std::vector<std::string>{"outputIsVisible", "outputOpacity", "outputName",   "outputX",
                                 "outputY",         "outputWidth",   "outputHeight", "outputImage"};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVAPSDLayerPlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVAPSDLayerPlugIn::QVAPSDLayerPlugIn(std::string hostProcessName)
    : QVAPlugIn(patchClass()), hostProcessName_(std::move(hostProcessName)) {}

QVAPSDLayerPlugIn::QVAPSDLayerPlugIn() : QVAPSDLayerPlugIn(QVAGreeter::currentEnvironment().processName) {}

void QVAPSDLayerPlugIn::enableExecution(ExecutionContext& /*context*/) {
  observingResizes_ = hostProcessName_ == QVAGreeter::kEditorProcessName;
}

void QVAPSDLayerPlugIn::disableExecution(ExecutionContext& /*context*/) {
  observingResizes_ = false;
}

void QVAPSDLayerPlugIn::windowDidResize(const std::string& windowTitle) {
  if (observingResizes_ && windowTitle.ends_with(kViewerTitleSuffix)) {
    forceRendering();
  }
}

bool QVAPSDLayerPlugIn::execute(ExecutionContext& context, double /*time*/, const Arguments& /*arguments*/) {
  const QVAPSDSize viewport{static_cast<float>(context.viewport().width),
                            static_cast<float>(context.viewport().height)};
  if (!didValueForInputKeyChange("inputPSDLayer") && viewport.width == previousViewPort_.width &&
      viewport.height == previousViewPort_.height) {
    return true;
  }
  previousViewPort_ = viewport;
  const StructureRef layer = valueForInputKey("inputPSDLayer").structureValue();
  const Value* imageValue = layer ? layer->find("image") : nullptr;
  const ImageRef image = imageValue != nullptr ? imageValue->imageValue() : nullptr;
  if (!image) {
    return true;
  }
  const Value* name = layer->find("name");
  setValueForOutputKey(Value(name != nullptr ? name->stringValue() : std::string()), "outputName");
  setValueForOutputKey(Value(member(*layer, "opacity")), "outputOpacity");
  setValueForOutputKey(Value(flag(*layer, "isVisible")), "outputIsVisible");

  const Size host{context.bounds().width, context.bounds().height};
  const Size vp{viewport.width, viewport.height};
  const bool alignTopLeft = flag(*layer, "alignTopLeft");
  const bool usePixelUnits = flag(*layer, "usePixelUnits");
  const bool useCanvasBounds = flag(*layer, "useCanvasBounds");
  const Size total{member(*layer, "totalWidth"), member(*layer, "totalHeight")};
  const Size canvas{member(*layer, "canvasWidth"), member(*layer, "canvasHeight")};
  const double x = member(*layer, "x");
  const double y = member(*layer, "y");
  const Size whole = flag(*layer, "scaleWithViewPort") ? total : vp;
  const Size picture{static_cast<double>(image->width()), static_cast<double>(image->height())};

  // Pixels to host units, over the whole raster.
  const auto hostSize = [&](Size pixels) {
    return Size{ratio(host.width * pixels.width, whole.width),
                ratio(host.height * pixels.height, whole.height)};
  };
  // A top-left corner in pixels to the centre of a picture of that size in a centred, y-up space.
  const auto hostOrigin = [&](double left, double top, Size size) {
    if (!alignTopLeft) {
      return Size{0, 0};
    }
    return Size{
        whole.width != 0 ? (host.width * left / whole.width - host.width / 2) + size.width / 2 : 0.0,
        whole.height != 0 ? -((host.height * top / whole.height - host.height / 2) + size.height / 2) : 0.0};
  };
  Size size;
  Size origin;
  Size scale{1, 1};
  if (!useCanvasBounds && usePixelUnits) {
    size = picture;
    origin = alignTopLeft ? Size{x, y} : Size{0, 0};
  } else if (!useCanvasBounds) {
    size = hostSize(picture);
    origin = hostOrigin(x, y, size);
  } else if (usePixelUnits) {
    size = canvas;
  } else {
    scale = {ratio(vp.width, canvas.width), ratio(vp.height, canvas.height)};
    size = hostSize(canvas);
    origin = hostOrigin(0, 0, size);
  }
  setValueForOutputKey(Value(size.width), "outputWidth");
  setValueForOutputKey(Value(size.height), "outputHeight");
  setValueForOutputKey(Value(origin.width), "outputX");
  setValueForOutputKey(Value(origin.height), "outputY");

  const std::optional<PixelBufferView> pixels = image->pixelBuffer();
  if (!pixels) {
    setValueForOutputKey(Value(), "outputImage");
    return true;
  }
  ImageRef frame;
  if (usePixelUnits || !useCanvasBounds) {
    frame = drawFrame(*pixels, picture, 1, 1, 0, 0);
  } else {
    // The layer keeps its place on the canvas, which is scaled onto the viewport. Measured from the
    // frame's bottom the picture's lower edge is at canvas height - picture height - y.
    const double bottom = canvas.height - picture.height - y;
    const double top = scale.height > 0 ? vp.height / scale.height - bottom - picture.height : 0;
    frame = drawFrame(*pixels, vp, scale.width, scale.height, x, top);
  }
  setValueForOutputKey(Value(frame), "outputImage");
  return true;
}

}  // namespace qva
