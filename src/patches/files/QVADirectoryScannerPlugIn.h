#pragma once

#include <string>
#include <vector>

#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Directory Scanner": the files of one folder whose extensions are listed, as full paths.
class QVADirectoryScannerPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();
  // The comma-separated extensions, each trimmed of blanks and tabs, empty ones dropped.
  static std::vector<std::string> extensionList(const std::string& extensions);
  // directory + "/" + name for every entry (in listing order) whose name does not begin with "." and whose
  // extension, the part after its last dot, is in the list; empty when the folder cannot be listed.
  static std::vector<std::string> scanDirectory(const std::string& directory,
                                                const std::vector<std::string>& extensions);

  QVADirectoryScannerPlugIn();

  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

 private:
  // The result of the last scan, output again at every execution.
  StructureRef fileList;
};

}  // namespace qva
