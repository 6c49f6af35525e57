#include "cli/DriveCommand.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "cli/CommandError.h"
#include "host/DriveSession.h"
#include "host/HostPatches.h"

namespace qva {

namespace {

std::string readScript(const std::string& path) {
  std::ostringstream text;
  if (path == "-") {
    text << std::cin.rdbuf();
    return text.str();
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw CommandError("cannot read the drive script " + path);
  }
  text << file.rdbuf();
  return text.str();
}

}  // namespace

void addDriveCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand(
      "drive", "Play a JSON script of host calls against one patch and print one JSON object per step");
  auto scriptPath = std::make_shared<std::string>();
  auto imagesFolder = std::make_shared<std::string>();
  auto fileRoots = std::make_shared<std::vector<std::string>>();
  command->add_option("SCRIPT", *scriptPath, "The script file, or - for standard input")->required();
  command->add_option("--images", *imagesFolder, "Write every output image as a PNG into this folder");
  command->add_option("--fs-root", *fileRoots,
                      "A folder fs steps may change things inside, besides the script's folder and the "
                      "temporary folder (repeatable)");
  command->callback([scriptPath, imagesFolder, fileRoots] {
    PropertyList script;
    try {
      script = parsePropertyList(readScript(*scriptPath));
    } catch (const PropertyList::exception& error) {
      throw CommandError("the drive script is not valid JSON: " + std::string(error.what()));
    }
    DriveOptions options;
    options.registry = &availablePatches();
    if (*scriptPath != "-") {
      options.scriptFolder = std::filesystem::path(*scriptPath).parent_path().string();
      if (options.scriptFolder.empty()) {
        options.scriptFolder = ".";
      }
      options.fileRoots.push_back(options.scriptFolder);
    }
    options.fileRoots.insert(options.fileRoots.end(), fileRoots->begin(), fileRoots->end());
    if (!imagesFolder->empty()) {
      options.imagesFolder = *imagesFolder;
    }
    try {
      DriveSession session(script, options);
      session.run([](const PropertyList& line) {
        const std::string text = line.dump(-1, ' ', false, PropertyList::error_handler_t::replace) + "\n";
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fflush(stdout);
      });
    } catch (const DriveError& error) {
      throw CommandError(error.what());
    }
  });
}

}  // namespace qva
