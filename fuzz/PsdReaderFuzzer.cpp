// Feeds arbitrary bytes to the Photoshop document reader. A refusal must say why; a document it accepts
// must be whole: a composite of the canvas size, every layer with pixels exactly its bounds, and every
// pixel premultiplied (no colour above its alpha).
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "foundation/psd/PsdReader.h"

namespace {

void checkPremultiplied(const qva::ImageRef& image) {
  const qva::PixelBufferView view = *image->pixelBuffer();
  for (int y = 0; y < view.height; ++y) {
    const std::uint8_t* row = view.bytes + static_cast<std::size_t>(y) * view.rowBytes;
    for (int x = 0; x < view.width; ++x) {
      const std::uint8_t* pixel = row + static_cast<std::size_t>(x) * 4;
      if (pixel[0] > pixel[3] || pixel[1] > pixel[3] || pixel[2] > pixel[3]) {
        std::abort();
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const qva::PsdReader::Result result = qva::PsdReader::read({data, size});
  if (!result.document) {
    if (result.error.empty()) {
      std::abort();
    }
    return 0;
  }
  const qva::PsdDocument& document = *result.document;
  if (document.composite()->width() != document.width() ||
      document.composite()->height() != document.height()) {
    std::abort();
  }
  checkPremultiplied(document.composite());
  for (const qva::PsdLayerRecord& layer : document.layers()) {
    if (layer.pixels) {
      if (layer.pixels->width() != layer.bounds.width() || layer.pixels->height() != layer.bounds.height()) {
        std::abort();
      }
      checkPremultiplied(layer.pixels);
    } else if (!layer.bounds.isEmpty()) {
      std::abort();
    }
  }
  for (std::size_t index = 1; index <= document.layers().size(); ++index) {
    if (!document.metadataItem("luni", index) || document.metadataItem("lflg", index)->size() != 1) {
      std::abort();
    }
  }
  return 0;
}
