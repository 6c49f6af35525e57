#pragma once

#include <memory>
#include <string>

#include "foundation/watch/MainThreadTimer.h"
#include "foundation/watch/ZWFileWatcherDelegate.h"
#include "foundation/watch/ZWKQueue.h"
#include "framework/QVAPlugIn.h"

namespace qva {

// "QVA Path Watcher": a one-execution pulse on "Update Signal" whenever the watched file or folder
// changes. A path that does not exist yet is looked for again every 0.2 seconds.
class QVAPathWatcherPlugIn final : public QVAPlugIn, public ZWFileWatcherDelegate {
 public:
  static const PatchClass& patchClass();

  QVAPathWatcherPlugIn();
  ~QVAPathWatcherPlugIn() override;

  bool startExecution(ExecutionContext& context) override;
  void enableExecution(ExecutionContext& context) override;
  double executionTimeForContext(ExecutionContext& context, double time, const Arguments& arguments) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
  void disableExecution(ExecutionContext& context) override;
  void stopExecution(ExecutionContext& context) override;

  void watcher(ZWKQueue& watcher, const std::string& notification, const std::string& path) override;

 private:
  // The change queue and the retry timer need the host thread's queue, known from the first start.
  void prepare(ExecutionContext& context);
  bool startWatching();
  void stopWatching();

  std::unique_ptr<ZWKQueue> kQueue;
  std::unique_ptr<MainThreadTimer> retryTimer;
  std::string watchedPath;
  bool shouldWatch = false;
  bool pathChanged = false;
  bool pathChangedNeedsReset = false;
};

}  // namespace qva
