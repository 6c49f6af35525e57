#include "patches/files/QVAPathWatcherPlugIn.h"

#include <sys/stat.h>

#include <chrono>
#include <cstring>
#include <limits>

#include "foundation/files/TildeExpansion.h"
#include "framework/ProcessLog.h"

namespace qva {

namespace {

constexpr double kOnInputChangeOnly = std::numeric_limits<float>::max();
constexpr auto kRetryInterval = std::chrono::milliseconds(200);

bool pathExists(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0;
}

bool isNotification(const std::string& notification, const char* name) {
  return notification == name;
}

}  // namespace

const PatchClass& QVAPathWatcherPlugIn::patchClass() {
  static const PatchClass patchClass = [] {
    PatchClass c;
    c.className = "QVAPathWatcherPlugIn";
    c.name = "QVA Path Watcher";
    c.description =
        "This patch watches a path (a file or a folder) for changes.\n\n"
        "When watching a file, the Update Signal output is set to True when the file is created, deleted or "
        "modified.\n\n"
        "When watching a folder, the Update Signal output is set to True when the folder itself or an item "
        "in "
        "that folder is renamed, added or deleted. Watching a folder is not recursive.";
    c.executionMode = ExecutionMode::Provider;
    c.timeMode = TimeMode::Idle;
    c.inputs = {PortDescription::port("inputPath", PortType::String, "Path")};
    c.outputs = {PortDescription::port("outputUpdateSignal", PortType::Boolean, "Update Signal")};
    c.plugInKeys = QVAPlugIn::plugInKeys();
    c.create = [] { return std::make_unique<QVAPathWatcherPlugIn>(); };
    return c;
  }();
  return patchClass;
}

QVAPathWatcherPlugIn::QVAPathWatcherPlugIn() : QVAPlugIn(patchClass()) {}

QVAPathWatcherPlugIn::~QVAPathWatcherPlugIn() {
  // The timer goes first: a retry must not reach a queue that is gone.
  retryTimer.reset();
  kQueue.reset();
}

void QVAPathWatcherPlugIn::prepare(ExecutionContext& context) {
  if (retryTimer == nullptr) {
    retryTimer = std::make_unique<MainThreadTimer>(context.mainThreadQueue());
  }
  if (kQueue == nullptr) {
    kQueue = ZWKQueue::create(context.mainThreadQueue());
    if (kQueue == nullptr) {
      ProcessLog::write(std::string("[QVAPathWatcherPlugIn startExecution:] no change queue: ") +
                        std::strerror(errno));
      return;
    }
    kQueue->setDelegate(this);
  }
}

bool QVAPathWatcherPlugIn::startExecution(ExecutionContext& context) {
  prepare(context);
  shouldWatch = true;
  return true;
}

void QVAPathWatcherPlugIn::enableExecution(ExecutionContext& context) {
  prepare(context);
  shouldWatch = true;
  startWatching();
}

double QVAPathWatcherPlugIn::executionTimeForContext(ExecutionContext&, double time, const Arguments&) {
  return pathChanged || pathChangedNeedsReset ? time : kOnInputChangeOnly;
}

bool QVAPathWatcherPlugIn::execute(ExecutionContext& context, double, const Arguments&) {
  if (didValueForInputKeyChange("inputPath")) {
    prepare(context);
    stopWatching();
    const std::string path = expandingTildeInPath(inputString("inputPath"));
    watchedPath = path.empty() ? path : context.resolvePath(path);
    startWatching();
  }
  if (pathChangedNeedsReset) {
    pathChangedNeedsReset = false;
    setValueForOutputKey(Value(false), "outputUpdateSignal");
  }
  if (pathChanged) {
    setValueForOutputKey(Value(true), "outputUpdateSignal");
    pathChanged = false;
    pathChangedNeedsReset = true;
  }
  return true;
}

void QVAPathWatcherPlugIn::disableExecution(ExecutionContext&) {
  shouldWatch = false;
  stopWatching();
}

void QVAPathWatcherPlugIn::stopExecution(ExecutionContext&) {
  shouldWatch = false;
  stopWatching();
  watchedPath.clear();
}

bool QVAPathWatcherPlugIn::startWatching() {
  if (!shouldWatch || watchedPath.empty() || kQueue == nullptr) {
    return false;
  }
  if (pathExists(watchedPath)) {
    kQueue->addPath(watchedPath);
    return true;
  }
  // Looked for again until it exists or watching stops; its appearance counts as a change.
  retryTimer->schedule(kRetryInterval, [this] {
    if (startWatching()) {
      pathChanged = true;
      forceRendering();
    }
  });
  return false;
}

void QVAPathWatcherPlugIn::stopWatching() {
  if (retryTimer != nullptr) {
    retryTimer->cancel();
  }
  if (kQueue != nullptr && !watchedPath.empty()) {
    kQueue->removePathFromQueue(watchedPath);
  }
}

void QVAPathWatcherPlugIn::watcher(ZWKQueue&, const std::string& notification, const std::string&) {
  const bool renamed = isNotification(notification, ZWFileWatcherRenameNotification);
  const bool deleted = isNotification(notification, ZWFileWatcherDeleteNotification);
  if (renamed || deleted || isNotification(notification, ZWFileWatcherWriteNotification) ||
      isNotification(notification, ZWFileWatcherSizeIncreaseNotification)) {
    pathChanged = true;
    forceRendering();
  }
  // Follow a file replaced under the same name; the retry covers the time it is missing.
  if (renamed || deleted) {
    stopWatching();
    startWatching();
  }
}

}  // namespace qva
