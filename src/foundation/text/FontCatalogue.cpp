#include "foundation/text/FontCatalogue.h"

#include <fontconfig/fontconfig.h>

#include <array>
#include <string_view>

namespace qva {

namespace {

const FcChar8* fcString(const std::string& text) {
  return reinterpret_cast<const FcChar8*>(text.c_str());
}

bool isGenericFamily(std::string_view family) {
  constexpr std::array<std::string_view, 8> kGeneric{"sans-serif", "serif",   "monospace", "sans",
                                                     "mono",       "cursive", "fantasy",   "system-ui"};
  for (std::string_view generic : kGeneric) {
    if (family.size() == generic.size() &&
        FcStrCmpIgnoreCase(reinterpret_cast<const FcChar8*>(std::string(family).c_str()),
                           reinterpret_cast<const FcChar8*>(std::string(generic).c_str())) == 0) {
      return true;
    }
  }
  return false;
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
  FcChar8* family = nullptr;
  for (int index = 1; !found && FcPatternGetString(pattern, FC_FAMILY, index, &family) == FcResultMatch;
       ++index) {
    std::string candidate(reinterpret_cast<const char*>(family));
    if (isGenericFamily(candidate)) {
      break;
    }
    found = installedFamily(candidate);
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
