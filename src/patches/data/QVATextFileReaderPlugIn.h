#pragma once

#include <optional>
#include <string>
#include <vector>

#include "foundation/files/FileAttributes.h"
#include "framework/QVAPlugIn.h"

namespace qva {

// "Text File Reader": a plain text file's lines (or pieces between a separator), reloaded when the file
// changes ("Poll") or while the reload input is on ("Flag").
class QVATextFileReaderPlugIn final : public QVAPlugIn {
 public:
  enum LoadMode : std::uint32_t { Poll = 0, Flag = 1 };

  static const PatchClass& patchClass();
  // The text split at every separator (a line feed when empty); a trailing separator adds no piece.
  static std::vector<std::string> splitText(const std::string& text, const std::string& separator);

  QVATextFileReaderPlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

 private:
  std::optional<FileAttributes> fileAttributes;
  bool loaded = false;
};

}  // namespace qva
