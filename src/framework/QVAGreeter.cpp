#include "framework/QVAGreeter.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "framework/ProcessLog.h"

namespace qva {

namespace {

// The maker's web address, a build setting.
#ifndef QVA_MAKER_WEBSITE
#define QVA_MAKER_WEBSITE "https://www.velmora.example/"
#endif

// The name the process was started by, without its folder. The kernel's own name for the process
// (/proc/self/comm) is cut to 15 characters, shorter than the editor's name.
std::string runningProcessName() {
  return program_invocation_short_name;
}

}  // namespace

QVAGreeter::QVAGreeter(const Environment& environment, AlertPresenter presenter, WebsiteOpener opener)
    : showThanks_(decideShowThanks(environment)),
      presenter_(std::move(presenter)),
      opener_(std::move(opener)) {}

QVAGreeter::Environment QVAGreeter::currentEnvironment() {
  const char* home = std::getenv("HOME");
  return {runningProcessName(), home != nullptr ? std::optional<std::string>(home) : std::nullopt};
}

QVAGreeter& QVAGreeter::shared() {
  // Linux hosts have no editor alert; were a process named like the editor to run, the greeting goes to
  // the process log and the first button is taken.
  static QVAGreeter greeter(
      currentEnvironment(),
      [](const std::string& message, const std::string&, const std::string&) {
        ProcessLog::write(message);
        return 1000;
      },
      [](const std::string&) {});
  return greeter;
}

bool QVAGreeter::decideShowThanks(const Environment& environment) {
  if (environment.processName != kEditorProcessName) {
    return false;
  }
  if (!environment.homeFolder) {
    return true;
  }
  std::error_code error;
  const auto suppressFile = std::filesystem::path(*environment.homeFolder) / kSuppressFileName;
  return !std::filesystem::exists(suppressFile, error);
}

void QVAGreeter::showThanks() {
  if (!showThanks_ || timesThanked_) {
    return;
  }
  timesThanked_ = true;
  if (presenter_ && presenter_(kMessage, kDefaultButton, kWebsiteButton) == kSecondButtonReturn && opener_) {
    opener_(QVA_MAKER_WEBSITE);
  }
}

}  // namespace qva
