#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "cli/CommandError.h"
#include "cli/DescribeCommand.h"
#include "cli/DriveCommand.h"
#include "cli/ListCommand.h"
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
  CLI::App app("qva: runs broadcast-graphics compositions and their patches headless");
  app.require_subcommand(1);
  qva::addListCommand(app);
  qva::addDescribeCommand(app);
  qva::addDriveCommand(app);
  qva::addRunCommand(app);
  qva::addRenderCommand(app);
  qva::addRtfCommand(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& help) {
    return app.exit(help);
  } catch (const CLI::CallForAllHelp& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "qva: %s (see qva --help)\n", error.what());
    return 2;
  } catch (const qva::CommandError& error) {
    std::fprintf(stderr, "qva: %s\n", error.what());
    return error.status();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "qva: internal error: %s\n", error.what());
    return 2;
  }
  return 0;
}
