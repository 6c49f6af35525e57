#include "framework/ExecutionContext.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "framework/PathAdditions.h"
#include "framework/ProcessLog.h"

namespace qva {

ExecutionContext::ExecutionContext(MainThreadQueue& mainThreadQueue) : mainThreadQueue_(mainThreadQueue) {}

std::string ExecutionContext::compositionFolder() const {
  std::error_code error;
  if (compositionPath_) {
    return std::filesystem::path(*compositionPath_).parent_path().string();
  }
  return std::filesystem::current_path(error).string();
}

std::string ExecutionContext::resolvePath(const std::string& path) const {
  return pathResolvedAgainst(path, compositionFolder());
}

double ExecutionContext::outputPixels(double logicalPixels) const {
  const double pixels = std::round(logicalPixels * outputScale_);
  return logicalPixels > 0 && !std::isnan(pixels) ? std::max(pixels, 1.0) : 0;
}

void ExecutionContext::logMessage(const std::string& line) const {
  if (hostLog_) {
    hostLog_(line);
  } else {
    ProcessLog::write(line);
  }
}

void ExecutionContext::requestDepthBuffer() const {
  if (depthBufferProvider_) {
    depthBufferProvider_();
  }
}

}  // namespace qva
