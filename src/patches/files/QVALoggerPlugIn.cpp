#include "patches/files/QVALoggerPlugIn.h"

#include <syslog.h>
#include <unistd.h>

#include <limits>

#include "framework/ProcessLog.h"

namespace qva {

namespace {

constexpr double kOnInputChangeOnly = std::numeric_limits<float>::max();

// The system log, where a daemon listens for it.
void writeToSystemLog(const std::string& line) {
  static const bool available = ::access("/dev/log", W_OK) == 0;
  if (available) {
    ::syslog(LOG_NOTICE, "%s", line.c_str());
  }
}

}  // namespace

const PatchClass& QVALoggerPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVALoggerPlugIn";
    c.name = "QVA Logger";
    c.description =
        "Logs the given message (and prefix) using NSLog() to standard error and the system log. Only "
        "executes "
        "when the \"Message\" input port changes.";
    c.executionMode = ExecutionMode::Processor;
    c.timeMode = TimeMode::None;
    c.inputs = {
        PortDescription::port("inputPrefix", PortType::String, "Prefix"),
        PortDescription::port("inputMessage", PortType::String, "Message"),
    };
    // "inputString" names no port of this class; hosts have always seen the list so.
    c.sortedPropertyPortKeys = std::vector<std::string>{"inputPrefix", "inputString"};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVALoggerPlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVALoggerPlugIn::QVALoggerPlugIn() : QVAPlugIn(patchClass()) {}

double QVALoggerPlugIn::executionTimeForContext(ExecutionContext&, double time, const Arguments&) {
  return didValueForInputKeyChange("inputMessage") ? time : kOnInputChangeOnly;
}

bool QVALoggerPlugIn::execute(ExecutionContext&, double, const Arguments&) {
  if (!didValueForInputKeyChange("inputMessage") && !didValueForInputKeyChange("inputPrefix")) {
    return true;
  }
  const std::string prefix = inputString("inputPrefix");
  const std::string message = inputString("inputMessage");
  std::string line;
  if (message.empty()) {
    line = "-[QVALoggerPlugIn execute:atTime:withArguments:] empty message";
  } else if (prefix.empty()) {
    line = message;
  } else {
    line = prefix + " " + message;
  }
  ProcessLog::write(line);
  writeToSystemLog(line);
  return true;
}

}  // namespace qva
