#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "foundation/text/TextAttributes.h"

namespace qva {

// The fonts fontconfig knows. A name exists when an installed family carries it or when the
// configuration aliases an installed family to it with a strong binding (as the project's fonts.conf does
// for "LucidaGrande", "Helvetica" and the other names compositions use); the weak fallbacks that every
// unknown name receives do not count. A face's own name ("Helvetica-BoldOblique": a family, a hyphen and
// the face's traits), as documents name fonts, exists when its family does.
class FontCatalogue {
 public:
  static FontCatalogue& shared();

  bool fontExists(const std::string& name);
  // The installed family that draws the name, or none when the name does not exist.
  std::optional<std::string> resolvedFamily(const std::string& name);
  // The font with a face's name taken apart into its family and traits; other fonts as they are.
  FontDescriptor resolvedFont(const FontDescriptor& font);

 private:
  FontCatalogue() = default;

  std::mutex mutex_;
  std::map<std::string, std::optional<std::string>> resolved_;
};

}  // namespace qva
