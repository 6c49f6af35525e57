#include "foundation/text/FontCatalogue.h"

#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <iterator>
#include <string_view>

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
  // A name that is a family comes back from resolvedFont unchanged.
  return resolvedFamily(resolvedFont(FontDescriptor{name}).family).has_value();
}

FontDescriptor FontCatalogue::resolvedFont(const FontDescriptor& font) {
  FontDescriptor resolved = font;
  const std::size_t dash = font.family.rfind('-');
  if (dash == std::string::npos || dash == 0 || resolvedFamily(font.family)) {
    return resolved;
  }
  const std::string family = font.family.substr(0, dash);
  const std::string face = font.family.substr(dash + 1);
  static constexpr std::string_view kFaceWords[] = {"Regular", "Roman",    "Book",  "Medium",
                                                    "Bold",    "Black",    "Heavy", "Italic",
                                                    "Oblique", "Semibold", "Light", "Condensed"};
  const bool knownFace =
      std::any_of(std::begin(kFaceWords), std::end(kFaceWords),
                  [&](std::string_view word) { return face.find(word) != std::string::npos; });
  if (!knownFace || !resolvedFamily(family)) {
    return resolved;
  }
  resolved.family = family;
  resolved.bold = resolved.bold || face.find("Bold") != std::string::npos ||
                  face.find("Black") != std::string::npos || face.find("Heavy") != std::string::npos;
  resolved.italic = resolved.italic || face.find("Italic") != std::string::npos ||
                    face.find("Oblique") != std::string::npos;
  return resolved;
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
