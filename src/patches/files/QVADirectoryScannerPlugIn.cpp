#include "patches/files/QVADirectoryScannerPlugIn.h"

#include <dirent.h>

#include <algorithm>
#include <memory>

#include "framework/Structure.h"

namespace qva {

namespace {

struct DirectoryCloser {
  void operator()(DIR* directory) const { ::closedir(directory); }
};

}  // namespace

const PatchClass& QVADirectoryScannerPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVADirectoryScannerPlugIn";
    c.name = "QVA Directory Scanner";
    c.description =
        "Lists all files in a directory (excluding subdirectories) matching the supplied file extensions. "
        "Setting the \"Scan Signal\" to \"True\", or changing the \"Directory Path\" or \"File Extensions\" "
        "forces a refresh.";
    c.executionMode = ExecutionMode::Provider;
    c.timeMode = TimeMode::None;
    c.inputs = {
        PortDescription::port("inputDirectoryPath", PortType::String, "Directory Path"),
        PortDescription::port("inputFileExtensions", PortType::String, "File Extensions",
                              Value("png, jpeg, jpg, tif, tiff")),
        PortDescription::port("inputScan", PortType::Boolean, "Scan Signal"),
    };
    c.outputs = {PortDescription::port("outputFileList", PortType::Structure, "File List")};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVADirectoryScannerPlugIn>(); };
    return c;
  }();
  return patchClass;
}

std::vector<std::string> QVADirectoryScannerPlugIn::extensionList(const std::string& extensions) {
  std::vector<std::string> list;
  std::size_t start = 0;
  while (start <= extensions.size()) {
    const std::size_t comma = std::min(extensions.find(',', start), extensions.size());
    const std::size_t first = extensions.find_first_not_of(" \t", start);
    if (first != std::string::npos && first < comma) {
      const std::size_t last = extensions.find_last_not_of(" \t", comma - 1);
      list.push_back(extensions.substr(first, last - first + 1));
    }
    start = comma + 1;
  }
  return list;
}

std::vector<std::string> QVADirectoryScannerPlugIn::scanDirectory(
    const std::string& directory, const std::vector<std::string>& extensions) {
  std::vector<std::string> files;
  const std::unique_ptr<DIR, DirectoryCloser> listing(directory.empty() ? nullptr
                                                                        : ::opendir(directory.c_str()));
  if (listing == nullptr) {
    return files;
  }
  // A trailing separator on the folder would double the one put before each name.
  std::string prefix = directory;
  while (prefix.size() > 1 && prefix.back() == '/') {
    prefix.pop_back();
  }
  if (prefix != "/") {
    prefix += '/';
  }
  while (const dirent* entry = ::readdir(listing.get())) {
    const std::string_view name = entry->d_name;
    const std::size_t dot = name.rfind('.');
    if (name.empty() || name.front() == '.' || dot == std::string_view::npos) {
      continue;
    }
    const std::string_view extension = name.substr(dot + 1);
    if (std::find(extensions.begin(), extensions.end(), extension) != extensions.end()) {
      files.push_back(prefix + std::string(name));
    }
  }
  return files;
}

QVADirectoryScannerPlugIn::QVADirectoryScannerPlugIn() : QVAPlugIn(patchClass()) {}

bool QVADirectoryScannerPlugIn::execute(ExecutionContext& context, double, const Arguments&) {
  const bool scanRequested = didValueForInputKeyChange("inputScan") && inputBoolean("inputScan");
  if (scanRequested || didValueForInputKeyChange("inputDirectoryPath") ||
      didValueForInputKeyChange("inputFileExtensions")) {
    const std::vector<std::string> files =
        scanDirectory(context.resolvePath(inputString("inputDirectoryPath")),
                      extensionList(inputString("inputFileExtensions")));
    fileList = Structure::makeArray(std::vector<Value>(files.begin(), files.end()));
  }
  setValueForOutputKey(Value(fileList), "outputFileList");
  return true;
}

}  // namespace qva
