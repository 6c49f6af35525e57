#include "cli/RemoteControl.h"

#include <cstdio>

#include "cli/CommandError.h"
#include "foundation/files/InstalledData.h"
#include "host/control/ControlServer.h"
#include "host/control/OscReceiver.h"

namespace qva {

void RemoteControl::addOptions(CLI::App& command, Options& options) {
  command.add_option_function<int>(
      "--control", [&options](int port) { options.httpPort = port; },
      "Serve the control API and page on this port (0 picks one)");
  command.add_option("--control-bind", options.bindAddress,
                     "Address the control server and OSC listen on (default 127.0.0.1: this machine only)");
  command
      .add_option("--control-token", options.token,
                  "A token every control request must carry (Authorization: Bearer, or open /?token=TOKEN)")
      ->envname("QVA_CONTROL_TOKEN");
  command.add_option("--control-allow", options.loadFolders,
                     "A folder control clients may load compositions from (repeatable; none: no loading)");
  command.add_option_function<int>(
      "--osc", [&options](int port) { options.oscPort = port; },
      "Receive OSC /qva/input/NAME VALUE on this UDP port");
}

RemoteControl::RemoteControl(PlayoutControl& playout, const Options& options) {
  for (const std::optional<int>& port : {options.httpPort, options.oscPort}) {
    if (port && (*port < 0 || *port > 65535)) {
      throw CommandError("a port is a number from 0 to 65535, not " + std::to_string(*port));
    }
  }
  if (options.httpPort) {
    ControlSettings settings;
    settings.bindAddress = options.bindAddress;
    settings.port = *options.httpPort;
    settings.token = options.token;
    settings.loadFolders.assign(options.loadFolders.begin(), options.loadFolders.end());
    if (const auto data = installedDataFolder()) {
      settings.pageFolder = *data / "control";
    }
    server_ = std::make_unique<ControlServer>(playout, settings);
    if (const std::string why = server_->start(); !why.empty()) {
      throw CommandError(why);
    }
    std::fprintf(stderr, "qva: control page at http://%s:%d/\n", options.bindAddress.c_str(),
                 server_->port());
  }
  if (options.oscPort) {
    osc_ = std::make_unique<OscReceiver>(playout);
    if (const std::string why = osc_->start(options.bindAddress, *options.oscPort); !why.empty()) {
      throw CommandError(why);
    }
    std::fprintf(stderr, "qva: OSC on %s UDP port %d\n", options.bindAddress.c_str(), osc_->port());
  }
}

RemoteControl::~RemoteControl() = default;

}  // namespace qva
