#include "cli/ListCommand.h"

#include <cstdio>

#include "framework/PatchRegistry.h"
#include "host/HostPatches.h"

namespace qva {

void addListCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("list", "List the patch classes: class name and title");
  command->callback([] {
    for (const PatchClass* patchClass : availablePatches().classes()) {
      std::printf("%-36s %s\n", patchClass->className.c_str(), patchClass->name.c_str());
    }
  });
}

}  // namespace qva
