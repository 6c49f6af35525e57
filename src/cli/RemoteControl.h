#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/PlayoutControl.h"

namespace qva {

class ControlServer;
class OscReceiver;

// The control server and OSC receiver of `qva play`, as its options ask for them; both run until the
// object goes.
class RemoteControl {
 public:
  struct Options {
    std::optional<int> httpPort;
    std::string bindAddress = "127.0.0.1";
    std::string token;
    std::vector<std::string> loadFolders;
    std::optional<int> oscPort;
  };

  // --control PORT, --control-bind ADDR, --control-token TOKEN (or QVA_CONTROL_TOKEN), --control-allow DIR
  // and --osc PORT.
  static void addOptions(CLI::App& command, Options& options);

  // Starts what the options name and says where on standard error; throws CommandError when an address
  // or port cannot be had.
  RemoteControl(PlayoutControl& playout, const Options& options);
  ~RemoteControl();
  RemoteControl(const RemoteControl&) = delete;
  RemoteControl& operator=(const RemoteControl&) = delete;

 private:
  std::unique_ptr<ControlServer> server_;
  std::unique_ptr<OscReceiver> osc_;
};

}  // namespace qva
