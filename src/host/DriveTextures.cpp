#include "host/DriveTextures.h"

#include <epoxy/gl.h>

#include <stdexcept>

namespace qva {

DriveTextures::~DriveTextures() {
  for (const auto& [key, name] : textures_) {
    glDeleteTextures(1, &name);
  }
}

bool DriveTextures::isRequest(const PropertyList& value) {
  return value.is_object() && value.contains("glTexture");
}

bool DriveTextures::requestsTexture(const PropertyList& value) {
  if (isRequest(value)) {
    return true;
  }
  if (value.is_object() || value.is_array()) {
    for (const PropertyList& element : value) {
      if (requestsTexture(element)) {
        return true;
      }
    }
  }
  return false;
}

PropertyList DriveTextures::resolve(const PropertyList& arguments) {
  if (isRequest(arguments)) {
    return textureFor(arguments);
  }
  PropertyList resolved = arguments;
  if (resolved.is_object() || resolved.is_array()) {
    for (PropertyList& element : resolved) {
      element = resolve(element);
    }
  }
  return resolved;
}

unsigned DriveTextures::textureFor(const PropertyList& request) {
  const std::string key = request.dump();
  if (const auto found = textures_.find(key); found != textures_.end()) {
    return found->second;
  }
  const PropertyList targetName = request.value("target", PropertyList("2D"));
  if (targetName != "2D" && targetName != "rectangle") {
    throw std::invalid_argument(R"(a glTexture's "target" is "2D" or "rectangle")");
  }
  const ImageRef image = images_.imageForValue(request["glTexture"]);
  const auto pixels = image->pixelBuffer();
  if (!pixels) {
    throw std::invalid_argument("a glTexture needs an image with pixels");
  }
  const GLenum target = targetName == "2D" ? GL_TEXTURE_2D : GL_TEXTURE_RECTANGLE;
  GLuint name = 0;
  glGenTextures(1, &name);
  glBindTexture(target, name);
  glTexParameteri(target, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  glTexParameteri(target, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  glTexParameteri(target, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
  glTexParameteri(target, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
  glPixelStorei(GL_UNPACK_ROW_LENGTH, static_cast<GLint>(pixels->rowBytes / 4));
  glTexImage2D(target, 0, GL_RGBA8, pixels->width, pixels->height, 0, GL_BGRA, GL_UNSIGNED_INT_8_8_8_8_REV,
               pixels->bytes);
  glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
  glBindTexture(target, 0);
  textures_[key] = name;
  return name;
}

}  // namespace qva
