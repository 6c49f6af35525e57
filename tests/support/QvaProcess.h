#pragma once

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace qva {

// The built qva command, as the command-line tests and benchmarks start it.
inline std::string qvaCommand() {
  return std::string(QVA_BINARY_DIR) + "/src/cli/qva";
}

// What a qva run through the shell wrote, and how it ended.
struct QvaRun {
  int status = -1;
  std::string output;  // standard output, bytes as written
  std::string errors;  // standard error
};

// Runs `qva ARGUMENTS` through the shell (arguments quoted as the shell reads them), with the text given on
// standard input.
inline QvaRun runQva(const std::string& arguments, const std::string& input = "") {
  // One file per test process: CTest runs the tests side by side.
  const std::string errorFile =
      (std::filesystem::temp_directory_path() / ("qva-stderr-" + std::to_string(getpid()) + ".txt")).string();
  std::string command = qvaCommand() + " " + arguments + " 2>" + errorFile;
  if (!input.empty()) {
    command = "printf '%s' '" + input + "' | " + command;
  }
  QvaRun result;
  FILE* pipe = popen(command.c_str(), "r");
  std::array<char, 65536> buffer{};
  while (const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
    result.output.append(buffer.data(), got);
  }
  result.status = WEXITSTATUS(pclose(pipe));
  std::ifstream errors(errorFile);
  result.errors.assign(std::istreambuf_iterator<char>(errors), std::istreambuf_iterator<char>());
  std::remove(errorFile.c_str());
  return result;
}

// Starts qva with the arguments, its standard output and error on the descriptors given (-1 keeps this
// process's own). Other descriptors it should not hold, such as the far ends of pipes, must be
// close-on-exec. The process id, or 0 when it could not start.
inline pid_t startQva(const std::vector<std::string>& arguments, int output = -1, int errors = -1) {
  std::vector<std::string> words = {qvaCommand()};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (output >= 0) {
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  }
  if (errors >= 0) {
    posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
  }
  pid_t child = 0;
  if (posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
    child = 0;
  }
  posix_spawn_file_actions_destroy(&actions);
  return child;
}

}  // namespace qva
