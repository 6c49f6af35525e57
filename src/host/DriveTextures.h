#pragma once

#include <map>
#include <string>

#include "framework/PropertyList.h"
#include "host/DriveImages.h"

namespace qva {

// GL textures that `qva drive` makes for per-frame arguments, as a playout host passes its video
// textures: a value {"glTexture": IMAGE, "target": "2D" | "rectangle"} becomes the name of a texture
// holding IMAGE, top row first. The same value names the same texture until the session ends.
class DriveTextures {
 public:
  explicit DriveTextures(DriveImages& images) : images_(images) {}
  // Deletes the textures; the session's GL context is current.
  ~DriveTextures();
  DriveTextures(const DriveTextures&) = delete;
  DriveTextures& operator=(const DriveTextures&) = delete;

  // Whether a value asks for a texture anywhere inside it.
  static bool requestsTexture(const PropertyList& value);
  // The arguments with every texture request replaced by its texture's name. Throws
  // std::invalid_argument for a request with a bad image or target.
  PropertyList resolve(const PropertyList& arguments);

 private:
  static bool isRequest(const PropertyList& value);
  unsigned textureFor(const PropertyList& request);

  DriveImages& images_;
  std::map<std::string, unsigned> textures_;
};

}  // namespace qva
