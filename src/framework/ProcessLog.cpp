#include "framework/ProcessLog.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <mutex>

namespace qva {

namespace {

std::mutex& sinkMutex() {
  static std::mutex mutex;
  return mutex;
}

ProcessLog::Sink& currentSink() {
  static ProcessLog::Sink sink;
  return sink;
}

std::string processName() {
  std::FILE* file = std::fopen("/proc/self/comm", "r");
  if (file == nullptr) {
    return "qva";
  }
  char buffer[64] = {};
  std::string name = std::fgets(buffer, sizeof buffer, file) != nullptr ? buffer : "qva";
  std::fclose(file);
  while (!name.empty() && (name.back() == '\n' || name.back() == '\r')) {
    name.pop_back();
  }
  return name;
}

}  // namespace

std::string ProcessLog::decorate(const std::string& line) {
  using namespace std::chrono;
  const auto now = system_clock::now();
  const std::time_t seconds = system_clock::to_time_t(now);
  const auto milliseconds = duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
  static const std::string name = processName();
  char prefix[160];
  std::snprintf(prefix, sizeof prefix, "%s.%03lld %s[%d] ", stamp, static_cast<long long>(milliseconds),
                name.c_str(), static_cast<int>(getpid()));
  return prefix + line;
}

void ProcessLog::write(const std::string& line) {
  std::lock_guard lock(sinkMutex());
  if (currentSink()) {
    currentSink()(line);
    return;
  }
  const std::string decorated = decorate(line) + "\n";
  std::fwrite(decorated.data(), 1, decorated.size(), stderr);
}

ProcessLog::Sink ProcessLog::setSink(Sink sink) {
  std::lock_guard lock(sinkMutex());
  Sink previous = std::move(currentSink());
  currentSink() = std::move(sink);
  return previous;
}

}  // namespace qva
