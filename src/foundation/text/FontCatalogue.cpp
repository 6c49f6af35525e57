#include "foundation/text/FontCatalogue.h"

#include <fontconfig/fontconfig.h>

namespace qva {

namespace {

const FcChar8* fcString(const std::string& text) {
  return reinterpret_cast<const FcChar8*>(text.c_str());
}

// The installed family named exactly so (fontconfig compares family names without case), or none.
std::optional<std::string> installedFamily(const std::string& family) {
  FcPattern* pattern = FcPatternCreate();
  FcPatternAddString(pattern, FC_FAMILY, fcString(family));
  FcObjectSet* objects = FcObjectSetBuild(FC_FAMILY, nullptr);
  FcFontSet* fonts = FcFontList(nullptr, pattern, objects);
  std::optional<std::string> found;
  if (fonts != nullptr && fonts->nfont > 0) {
    found = family;
  }
  if (fonts != nullptr) {
    FcFontSetDestroy(fonts);
  }
  FcObjectSetDestroy(objects);
  FcPatternDestroy(pattern);
  return found;
}

std::optional<std::string> resolve(const std::string& name) {
  if (name.empty() || FcInit() == FcFalse) {
    return std::nullopt;
  }
  if (auto family = installedFamily(name)) {
    return family;
  }
  FcPattern* pattern = FcPatternCreate();
  FcPatternAddString(pattern, FC_FAMILY, fcString(name));
  FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
  std::optional<std::string> found;
  FcValue value;
  FcValueBinding binding = FcValueBindingWeak;
  // Aliases made for the name bind strongly (or "same"); the fallbacks every name gets bind weakly.
  for (int index = 1;
       !found && FcPatternGetWithBinding(pattern, FC_FAMILY, index, &value, &binding) == FcResultMatch;
       ++index) {
    if (binding != FcValueBindingWeak && value.type == FcTypeString) {
      found = installedFamily(reinterpret_cast<const char*>(value.u.s));
    }
  }
  FcPatternDestroy(pattern);
  return found;
}

}  // namespace

FontCatalogue& FontCatalogue::shared() {
  static FontCatalogue catalogue;
  return catalogue;
}

bool FontCatalogue::fontExists(const std::string& name) {
  return resolvedFamily(name).has_value();
}

std::optional<std::string> FontCatalogue::resolvedFamily(const std::string& name) {
  std::lock_guard lock(mutex_);
  auto cached = resolved_.find(name);
  if (cached != resolved_.end()) {
    return cached->second;
  }
  auto family = resolve(name);
  resolved_.emplace(name, family);
  return family;
}

}  // namespace qva
