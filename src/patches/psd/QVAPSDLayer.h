#pragma once

#include <string>

#include "framework/Image.h"

namespace qva {

// A point or size of two single-precision floats, as the importer hands them out.
struct QVAPSDPoint {
  float x = 0;
  float y = 0;
};

struct QVAPSDSize {
  float width = 0;
  float height = 0;
};

// One layer of an imported document: its pixels, name, place on the canvas, opacity and visibility.
class QVAPSDLayer {
 public:
  QVAPSDLayer(ImageRef image, std::string name, QVAPSDPoint origin, float opacity, bool isVisible);

  const ImageRef& image() const { return image_; }
  const std::string& name() const { return name_; }
  // The lower-left or upper-left corner on the canvas in pixels, as the importer was asked.
  QVAPSDPoint origin() const { return origin_; }
  float opacity() const { return opacity_; }
  bool isVisible() const { return isVisible_; }

  // "<QVAPSDLayer> name: N, origin: {x, y}, opacity: 0.50 is visible: Yes".
  std::string description() const;

 private:
  ImageRef image_;
  std::string name_;
  QVAPSDPoint origin_;
  float opacity_;
  bool isVisible_;
};

}  // namespace qva
