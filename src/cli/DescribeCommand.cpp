#include "cli/DescribeCommand.h"

#include <cstdio>
#include <memory>

#include "cli/CommandError.h"
#include "framework/Patch.h"
#include "framework/PatchRegistry.h"
#include "host/HostPatches.h"
#include "host/PatchClassJson.h"

namespace qva {

namespace {

const char* executionModeName(ExecutionMode mode) {
  switch (mode) {
    case ExecutionMode::Provider:
      return "provider";
    case ExecutionMode::Processor:
      return "processor";
    case ExecutionMode::Consumer:
      return "consumer";
  }
  return "?";
}

const char* timeModeName(TimeMode mode) {
  switch (mode) {
    case TimeMode::None:
      return "none";
    case TimeMode::Idle:
      return "idle";
    case TimeMode::TimeBase:
      return "time base";
  }
  return "?";
}

void printPorts(const char* heading, const PropertyList& ports) {
  std::printf("%s:\n", heading);
  for (const PropertyList& port : ports) {
    std::string line = "  " + port["key"].get<std::string>() + " (" + port["type"].get<std::string>() + ")";
    for (const auto& [key, value] : port["attributes"].items()) {
      line += " " + key + "=" + value.dump();
    }
    std::printf("%s\n", line.c_str());
  }
}

}  // namespace

void addDescribeCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("describe", "Describe a patch class: title, modes, ports, settings");
  auto className = std::make_shared<std::string>();
  auto json = std::make_shared<bool>(false);
  command->add_option("CLASS", *className, "Patch class name (see qva list)")->required();
  command->add_flag("--json", *json, "Print the description as one JSON object");
  command->callback([className, json] {
    const PatchClass* patchClass = availablePatches().find(*className);
    if (patchClass == nullptr) {
      throw CommandError("unknown patch class \"" + *className + "\" (see qva list)");
    }
    const std::unique_ptr<Patch> patch = patchClass->create();
    PropertyList description = {{"class", patchClass->className}};
    description.update(PatchClassJson::attributes(*patchClass));
    description.update(PatchClassJson::ports(*patch));
    if (*json) {
      std::printf("%s\n", description.dump().c_str());
      return;
    }
    std::printf("%s  \"%s\"\n\n%s\n\n", patchClass->className.c_str(), patchClass->name.c_str(),
                patchClass->description.c_str());
    if (patchClass->copyright) {
      std::printf("Copyright: %s\n", patchClass->copyright->c_str());
    }
    std::printf("Execution mode: %d (%s)\nTime mode: %d (%s)\n", static_cast<int>(patchClass->executionMode),
                executionModeName(patchClass->executionMode), static_cast<int>(patchClass->timeMode),
                timeModeName(patchClass->timeMode));
    printPorts("Inputs", description["inputs"]);
    printPorts("Outputs", description["outputs"]);
    std::printf("Settings keys: %s\n", description["plugInKeys"].dump().c_str());
  });
}

}  // namespace qva
