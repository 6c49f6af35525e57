#pragma once

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

extern char** environ;

namespace qva {

// An X server of its own (Xvfb) with one 24-bit screen, for tests of windows; DISPLAY points at it while
// it lives. running() is false where Xvfb cannot be started.
class VirtualDisplay {
 public:
  VirtualDisplay(int width, int height) {
    int numbers[2];
    if (pipe(numbers) != 0) {
      return;
    }
    const std::string screen = std::to_string(width) + "x" + std::to_string(height) + "x24";
    const std::string descriptor = std::to_string(numbers[1]);
    const char* const arguments[] = {"Xvfb",      "-displayfd", descriptor.c_str(),
                                     "-screen",   "0",          screen.c_str(),
                                     "-nolisten", "tcp",        nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addclose(&actions, numbers[0]);
    const bool spawned =
        posix_spawnp(&server_, "Xvfb", &actions, nullptr, const_cast<char* const*>(arguments), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    close(numbers[1]);
    // The server writes its display number and a newline once it takes connections, and fails should
    // the pipe close before it has written both.
    std::string number;
    char next = 0;
    while (spawned && read(numbers[0], &next, 1) == 1 && next != '\n') {
      number += next;
    }
    close(numbers[0]);
    if (next != '\n' || number.empty()) {
      return;
    }
    display_ = ":" + number;
    if (const char* previous = std::getenv("DISPLAY")) {
      previousDisplay_ = previous;
    }
    setenv("DISPLAY", display_.c_str(), 1);
  }
  ~VirtualDisplay() {
    if (server_ > 0) {
      kill(server_, SIGTERM);
      waitpid(server_, nullptr, 0);
    }
    if (previousDisplay_.empty()) {
      unsetenv("DISPLAY");
    } else {
      setenv("DISPLAY", previousDisplay_.c_str(), 1);
    }
  }
  VirtualDisplay(const VirtualDisplay&) = delete;
  VirtualDisplay& operator=(const VirtualDisplay&) = delete;

  bool running() const { return !display_.empty(); }
  const std::string& display() const { return display_; }

 private:
  pid_t server_ = 0;
  std::string display_;
  std::string previousDisplay_;
};

}  // namespace qva
