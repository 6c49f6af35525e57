#include "patches/psd/QVAPSDLayer.h"

#include <cstdio>

namespace qva {

QVAPSDLayer::QVAPSDLayer(ImageRef image, std::string name, QVAPSDPoint origin, float opacity, bool isVisible)
    : image_(std::move(image)),
      name_(std::move(name)),
      origin_(origin),
      opacity_(opacity),
      isVisible_(isVisible) {}

std::string QVAPSDLayer::description() const {
  char numbers[96];
  std::snprintf(numbers, sizeof numbers, "{%g, %g}, opacity: %3.2f", static_cast<double>(origin_.x),
                static_cast<double>(origin_.y), static_cast<double>(opacity_));
  return "<QVAPSDLayer> name: " + name_ + ", origin: " + numbers +
         " is visible: " + (isVisible_ ? "Yes" : "No");
}

}  // namespace qva
