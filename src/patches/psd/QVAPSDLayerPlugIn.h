#pragma once

#include <string>

#include "framework/QVAPlugIn.h"
#include "patches/psd/QVAPSDLayer.h"

namespace qva {

// "QVA PSD Layer": turns one layer structure of the PSD Importer into an image with a size and place in
// host units (or pixels), so that a sprite placed with them reproduces the document's layout on the
// nominal raster whatever the size of the viewer.
class QVAPSDLayerPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();
  // The host process's name decides whether viewer resizes are watched (only in the editor).
  explicit QVAPSDLayerPlugIn(std::string hostProcessName);
  QVAPSDLayerPlugIn();

  void enableExecution(ExecutionContext& context) override;
  void disableExecution(ExecutionContext& context) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;

  // A window of the host was resized: a viewer's resize re-renders, so that the layout follows it.
  void windowDidResize(const std::string& windowTitle);
  bool observesWindowResizes() const { return observingResizes_; }

 private:
  std::string hostProcessName_;
  bool observingResizes_ = false;
  // The viewport at the last computation; the layout is computed again only when it or the input changes.
  QVAPSDSize previousViewPort_;
};

}  // namespace qva
