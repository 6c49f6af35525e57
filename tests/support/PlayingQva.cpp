#include "support/PlayingQva.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <regex>

#include "support/QvaProcess.h"

namespace qva {

namespace {

int portAfter(const std::string& text, const std::regex& pattern) {
  std::smatch match;
  return std::regex_search(text, match, pattern) ? std::stoi(match[1]) : 0;
}

}  // namespace

PlayingQva::PlayingQva(const std::vector<std::string>& arguments, bool withOsc) {
  std::vector<std::string> words = {"play"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  words.insert(words.end(), {"--control", "0"});
  if (withOsc) {
    words.insert(words.end(), {"--osc", "0"});
  }
  int errors[2];
  if (pipe2(errors, O_CLOEXEC) != 0) {
    return;
  }
  child_ = startQva(words, -1, errors[1]);
  close(errors[1]);
  if (child_ == 0) {
    close(errors[0]);
    return;
  }
  reader_ = std::thread([this, descriptor = errors[0]] { readErrors(descriptor); });
  const std::regex control(R"(control page at http://[^:]+:(\d+)/)");
  const std::regex osc(R"(OSC on \S+ UDP port (\d+))");
  // The first frames on a software renderer can take a while.
  for (const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
       std::chrono::steady_clock::now() < deadline;) {
    const std::string text = this->errors();
    const int controlPort = portAfter(text, control);
    const int oscPort = portAfter(text, osc);
    if (controlPort > 0 && (!withOsc || oscPort > 0)) {
      oscPort_ = oscPort;
      controlPort_ = controlPort;
      return;
    }
    if (waitpid(child_, &exitStatus_, WNOHANG) == child_) {
      child_ = 0;
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

PlayingQva::~PlayingQva() {
  if (child_ > 0) {
    kill(child_, SIGTERM);
    waitpid(child_, &exitStatus_, 0);
  }
  if (reader_.joinable()) {
    reader_.join();
  }
}

void PlayingQva::readErrors(int descriptor) {
  char buffer[4096];
  for (ssize_t count = 0; (count = read(descriptor, buffer, sizeof buffer)) > 0;) {
    std::lock_guard lock(mutex_);
    errors_.append(buffer, static_cast<std::size_t>(count));
  }
  close(descriptor);
}

std::string PlayingQva::errors() const {
  std::lock_guard lock(mutex_);
  return errors_;
}

int PlayingQva::waitForExit(int seconds) {
  for (const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
       child_ > 0 && std::chrono::steady_clock::now() < deadline;) {
    if (waitpid(child_, &exitStatus_, WNOHANG) == child_) {
      child_ = 0;
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return child_ == 0 && WIFEXITED(exitStatus_) ? WEXITSTATUS(exitStatus_) : -1;
}

}  // namespace qva
