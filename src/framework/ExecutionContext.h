#pragma once

#include <functional>
#include <optional>
#include <string>

#include "framework/PropertyList.h"

namespace qva {

class GLContext;
class MainThreadQueue;

// A rectangle in composition units: x from -1 to 1, y from -H/W to H/W.
struct Rect {
  double x = -1;
  double y = -0.5625;
  double width = 2;
  double height = 1.125;
};

struct PixelSize {
  int width = 1920;
  int height = 1080;
};

// What the host offers a patch during execution: bounds, viewport and output scale, colour space, the
// composition's location, user information for the playout host, the host log, the GL context (or none)
// and the host thread's queue.
class ExecutionContext {
 public:
  using LogSink = std::function<void(const std::string& line)>;

  explicit ExecutionContext(MainThreadQueue& mainThreadQueue);

  const Rect& bounds() const { return bounds_; }
  void setBounds(const Rect& bounds) { bounds_ = bounds; }
  // The viewport in the composition's logical pixels: its canvas width across, and the output's height
  // at that scale. Patches size their images and convert pixels to units by it, so that a composition
  // lays out the same at every output size.
  const PixelSize& viewport() const { return viewport_; }
  void setViewport(const PixelSize& viewport) { viewport_ = viewport; }
  // Output pixels per logical pixel: 2 for a 1920-wide composition rendered at 3840 pixels across.
  // Patches that draw vector content may draw it at this density, for the sharpness of the output.
  double outputScale() const { return outputScale_; }
  void setOutputScale(double scale) { outputScale_ = scale; }
  // A length in logical pixels as a whole number of output pixels, at least 1 for a positive length
  // and 0 for any other.
  double outputPixels(double logicalPixels) const;
  const std::string& colorSpace() const { return colorSpace_; }

  // The composition file's path; none for an unsaved composition.
  const std::optional<std::string>& compositionPath() const { return compositionPath_; }
  void setCompositionPath(std::optional<std::string> path) { compositionPath_ = std::move(path); }
  // The folder relative paths on ports resolve against: the composition's folder, or the working
  // folder for an unsaved composition.
  std::string compositionFolder() const;
  // A port path resolved: absolute paths as they are, others against compositionFolder().
  std::string resolvePath(const std::string& path) const;

  // The local time zone (an IANA name) used wherever local time is formatted; empty means the machine's.
  const std::string& timeZone() const { return timeZone_; }
  void setTimeZone(std::string timeZone) { timeZone_ = std::move(timeZone); }

  // The user-information dictionary read by the playout host.
  PropertyList& userInfo() { return userInfo_; }
  const PropertyList& userInfo() const { return userInfo_; }

  void logMessage(const std::string& line) const;
  void setHostLog(LogSink sink) { hostLog_ = std::move(sink); }

  GLContext* glContext() const { return glContext_; }
  void setGLContext(GLContext* context) { glContext_ = context; }
  // Patches that test or write depth call this before they draw: the host's canvas then has a depth
  // buffer, cleared with the frame. Canvases carry none otherwise, which spares clearing it every frame.
  void requestDepthBuffer() const;
  void setDepthBufferProvider(std::function<void()> provider) { depthBufferProvider_ = std::move(provider); }

  MainThreadQueue& mainThreadQueue() const { return mainThreadQueue_; }
  // Rendering to a file rather than live: no frame is due at a wall-clock time, so a patch may finish its
  // background work before it answers, and every render of a composition gives the same frames.
  bool isOffline() const { return offline_; }
  void setOffline(bool offline) { offline_ = offline; }

 private:
  Rect bounds_;
  PixelSize viewport_;
  double outputScale_ = 1;
  std::string colorSpace_ = "sRGB";
  std::optional<std::string> compositionPath_;
  std::string timeZone_;
  PropertyList userInfo_ = PropertyList::object();
  LogSink hostLog_;
  GLContext* glContext_ = nullptr;
  std::function<void()> depthBufferProvider_;
  MainThreadQueue& mainThreadQueue_;
  bool offline_ = false;
};

}  // namespace qva
