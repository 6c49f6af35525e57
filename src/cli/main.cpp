#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "cli/CommandError.h"
#include "cli/DescribeCommand.h"
#include "cli/DriveCommand.h"
#include "cli/ListCommand.h"
#include "cli/PlayCommand.h"
#include "cli/RenderCommand.h"
#include "cli/RtfCommand.h"
#include "cli/RunCommand.h"
#include "foundation/files/InstalledData.h"

int main(int argc, char** argv) {
  // Text is laid out with the project's font configuration, so that font names resolve and metrics repeat
  // on every machine; a configuration the user names explicitly wins.
  if (const auto data = qva::installedDataFolder()) {
    setenv("FONTCONFIG_FILE", (*data / "fonts" / "fonts.conf").c_str(), 0);
  }
  // Named, so that usage lines say qva whatever path the command was started by.
  CLI::App app("qva: runs broadcast-graphics compositions and their patches headless", "qva");
  app.set_version_flag("--version", "qva " QVA_VERSION);
  app.require_subcommand(1);
  qva::addListCommand(app);
  qva::addDescribeCommand(app);
  qva::addDriveCommand(app);
  qva::addRunCommand(app);
  qva::addRenderCommand(app);
  qva::addPlayCommand(app);
  qva::addRtfCommand(app);
  if (argc > 1 && argv[1][0] != '-') {
    const std::vector<CLI::App*> commands = app.get_subcommands({});
    if (std::none_of(commands.begin(), commands.end(),
                     [&](CLI::App* command) { return command->check_name(argv[1]); })) {
      std::string names;
      for (const CLI::App* command : commands) {
        names += (names.empty() ? "" : ", ") + command->get_name();
      }
      std::fprintf(stderr, "qva: unknown command \"%s\" (%s; see qva --help)\n", argv[1], names.c_str());
      return 2;
    }
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& help) {
    return app.exit(help);
  } catch (const CLI::CallForAllHelp& help) {
    return app.exit(help);
  } catch (const CLI::CallForVersion& version) {
    return app.exit(version);
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "qva: %s (see qva --help)\n", error.what());
    return 2;
  } catch (const qva::CommandError& error) {
    if (*error.what() != '\0') {
      std::fprintf(stderr, "qva: %s\n", error.what());
    }
    return error.status();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "qva: internal error: %s\n", error.what());
    return 2;
  }
  return 0;
}
