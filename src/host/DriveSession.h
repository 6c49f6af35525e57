#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "foundation/dispatch/TaskQueue.h"
#include "foundation/gpi/SimulatedGpiBox.h"
#include "framework/ExecutionContext.h"
#include "framework/PatchRegistry.h"
#include "framework/PropertyList.h"
#include "host/DriveImages.h"
#include "host/DriveTextures.h"
#include "host/PatchHost.h"
#include "host/Renderer.h"

namespace qva {

// A script that cannot be read, or names an unknown class, op or port.
class DriveError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct DriveOptions {
  const PatchRegistry* registry = nullptr;
  // The folder relative image and file paths of the script are taken from.
  std::string scriptFolder = ".";
  // The folders the fs op may change things inside, besides the system's temporary folder.
  std::vector<std::string> fileRoots;
  // Where output images are written as PNG, when given.
  std::optional<std::string> imagesFolder;
};

// `qva drive`: creates the script's patch (or patches, sharing one context and the process's state),
// plays a script of host calls against them and reports every step as one JSON object.
class DriveSession {
 public:
  using Emit = std::function<void(const PropertyList& line)>;

  // Checks the whole script and creates the patch; throws DriveError for a script that cannot run.
  DriveSession(const PropertyList& script, const DriveOptions& options);
  ~DriveSession();

  // Plays the steps, handing each step's object to emit as soon as it is done. Throws DriveError for a
  // step that names an unknown port or holds a value the port cannot take.
  void run(const Emit& emit);

  // Runs a script and collects its lines.
  static std::vector<PropertyList> runScript(const PropertyList& script, const DriveOptions& options);

 private:
  PropertyList runFrame(std::size_t index, const PropertyList& step);
  PropertyList runOp(std::size_t index, const PropertyList& step);
  // Sets the simulated GPI box as a gpi step says and adds the box and its calls to the step's line.
  void runGpiOp(const PropertyList& step, PropertyList& line);
  // The host of the patch a step names.
  PatchHost& hostFor(const PropertyList& step);
  void applySettings(PatchHost& host, const PropertyList& settings);
  void setInputs(PatchHost& host, const PropertyList& inputs);
  PropertyList outputs(PatchHost& host);
  // Starts every patch the step reaches.
  void startPatches(const PropertyList& step, PropertyList& line);
  // The step's per-frame arguments, with GL textures made for the values that ask for them.
  PropertyList frameArguments(std::size_t index, const PropertyList& step);
  // The canvas read back, described as an output image.
  PropertyList canvasImage();
  // Adds the host log, process log and user information gathered since the last step.
  void finishLine(PropertyList& line);

  PropertyList script_;
  DriveOptions options_;
  TaskQueue queue_;
  ExecutionContext context_;
  // Declared before the patch so that the patch is gone before the GL context it may hold objects in.
  std::unique_ptr<Renderer> renderer_;
  DriveImages images_;
  // Textures made for per-frame arguments; they go before the GL context.
  DriveTextures textures_{images_};
  // The GPI box the patch talks to when the context asks for the simulated one.
  std::shared_ptr<SimulatedGpiBox> gpiBox_;
  std::vector<std::unique_ptr<PatchHost>> hosts_;
  // Whether the script gave "patches": its lines then name the patch.
  bool severalPatches_ = false;
  // Per patch: whether the script has started it itself (or its first frame started it).
  std::vector<bool> startIssued_;
  // Background deliveries counted when the previous step ended, for `wait` until a delivery.
  std::size_t deliveriesBeforeStep_ = 0;
  std::mutex logMutex_;
  std::vector<std::string> hostLog_;
  std::vector<std::string> processLog_;
  std::function<void(const std::string&)> previousProcessLogSink_;
};

}  // namespace qva
