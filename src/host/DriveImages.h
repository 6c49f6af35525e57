#pragma once

#include <map>
#include <optional>
#include <string>

#include "framework/Image.h"
#include "framework/PropertyList.h"

namespace qva {

// Images at the edges of `qva drive`: input images made from script values, kept per value so that an
// identical value keeps the same image object, and output images described by size, row length and a
// SHA-256 of their visible bytes (and written as PNG files when an images folder is given).
class DriveImages {
 public:
  DriveImages(std::string scriptFolder, std::optional<std::string> imagesFolder);

  // {"imageFile": "path"} (relative to the script's folder) or {"solid": [r, g, b, a], "width": W,
  // "height": H}. Throws std::invalid_argument for anything else or a file that cannot be decoded.
  ImageRef imageForValue(const PropertyList& imageValue);
  // Images without pixels in memory (textures, drawn images) are read back through this context.
  void setGLContext(GLContext* gl) { gl_ = gl; }
  // {"image": {"width", "height", "rowBytes", "format", "sha256"[, "file"]}}.
  PropertyList describe(const ImageRef& image);

  // The SHA-256, in lower-case hex, of the width*4 visible bytes of each row, top to bottom.
  static std::string visibleBytesDigest(const PixelBufferView& pixels);
  // A premultiplied BGRA8 image of one colour (components clamped to 0..1).
  static ImageRef makeSolidImage(const PropertyList& color, long long width, long long height);

 private:
  std::string scriptFolder_;
  std::optional<std::string> imagesFolder_;
  std::map<std::string, ImageRef> inputImages_;
  int writtenImages_ = 0;
  GLContext* gl_ = nullptr;
};

}  // namespace qva
