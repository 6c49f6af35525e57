#include "host/DriveSession.h"

#include <chrono>
#include <filesystem>
#include <limits>
#include <set>

#include "foundation/gpi/GpiDriverSelection.h"
#include "foundation/image/Bitmap.h"
#include "framework/ProcessLog.h"
#include "host/FileAction.h"
#include "host/PatchClassJson.h"
#include "host/ScriptBytes.h"
#include "host/SimulatedGpiSettings.h"
#include "host/ValueJson.h"

namespace qva {

namespace {

const std::set<std::string>& knownOps() {
  static const std::set<std::string> ops = {"settings", "stop", "start", "enable",     "disable", "serialize",
                                            "ports",    "wait", "fs",    "attributes", "gpi"};
  return ops;
}

double requiredNumber(const PropertyList& object, const char* key, const std::string& where) {
  if (!object.contains(key) || !object[key].is_number()) {
    throw DriveError(where + ": \"" + key + "\" must be a number");
  }
  return object[key].get<double>();
}

// The index of the patch a step names ("patch", 0 when absent).
std::size_t patchIndex(const PropertyList& step) {
  return step.value("patch", std::size_t{0});
}

// Whether a start or stop step reaches the patch at the index: one without "patch" reaches them all.
bool reaches(const PropertyList& step, std::size_t index) {
  return !step.contains("patch") || step["patch"] == index;
}

void checkStep(const PropertyList& step, std::size_t index, bool gl, std::size_t patchCount) {
  const std::string where = "step " + std::to_string(index);
  if (!step.is_object()) {
    throw DriveError(where + " is not an object");
  }
  if (step.contains("patch") && (!step["patch"].is_number_unsigned() || step["patch"] >= patchCount)) {
    throw DriveError(where + ": \"patch\" must be the index of one of the script's " +
                     std::to_string(patchCount) + " patches");
  }
  if (step.contains("op")) {
    if (!step["op"].is_string() || !knownOps().contains(step["op"].get<std::string>())) {
      throw DriveError(where + ": unknown op " + step["op"].dump() +
                       " (settings, stop, start, enable, disable, serialize, ports, wait, fs or attributes)");
    }
    const std::string op = step["op"].get<std::string>();
    if (op == "settings" && !(step.contains("settings") && step["settings"].is_object())) {
      throw DriveError(where + ": a settings op needs a \"settings\" object");
    }
    if (op == "wait" && requiredNumber(step, "seconds", where) < 0) {
      throw DriveError(where + ": \"seconds\" must not be negative");
    }
    if (op == "wait" && step.contains("until") && step["until"] != "delivery") {
      throw DriveError(where + ": \"until\" can only be \"delivery\"");
    }
    if (op == "fs") {
      try {
        FileAction(step, ".");
      } catch (const std::invalid_argument& error) {
        throw DriveError(where + ": " + error.what());
      }
    }
    return;
  }
  requiredNumber(step, "time", where);
  if (step.contains("force") && !step["force"].is_boolean()) {
    throw DriveError(where + ": \"force\" must be true or false");
  }
  for (const char* key : {"inputs", "arguments"}) {
    if (step.contains(key) && !step[key].is_object() &&
        !(std::string(key) == "arguments" && step[key].is_null())) {
      throw DriveError(where + ": \"" + key + "\" must be an object");
    }
  }
  if (step.contains("arguments") && DriveTextures::requestsTexture(step["arguments"]) && !gl) {
    throw DriveError(where + ": a glTexture argument needs a GL context (context \"gl\": true)");
  }
  for (const char* key : {"clear", "canvas"}) {
    if (step.contains(key) && !gl) {
      throw DriveError(where + ": \"" + key + "\" needs a canvas (context \"gl\": true)");
    }
  }
  if (step.contains("clear")) {
    try {
      if (ValueJson::decode(step["clear"], PortType::Color).isNone()) {
        throw std::invalid_argument("a colour is needed, not null");
      }
    } catch (const std::invalid_argument& error) {
      throw DriveError(where + ": \"clear\": " + error.what());
    }
  }
  if (step.contains("canvas") && !step["canvas"].is_boolean()) {
    throw DriveError(where + ": \"canvas\" must be true or false");
  }
}

void applyContext(const PropertyList& json, ExecutionContext& context) {
  if (!json.is_object()) {
    throw DriveError("\"context\" must be an object");
  }
  if (json.contains("compositionPath")) {
    if (!json["compositionPath"].is_string()) {
      throw DriveError("context \"compositionPath\" must be a string");
    }
    context.setCompositionPath(json["compositionPath"].get<std::string>());
  }
  if (json.contains("bounds")) {
    const PropertyList& bounds = json["bounds"];
    if (!bounds.is_array() || bounds.size() != 4 ||
        !std::all_of(bounds.begin(), bounds.end(), [](const PropertyList& n) { return n.is_number(); })) {
      throw DriveError("context \"bounds\" must be [x, y, width, height]");
    }
    context.setBounds(
        {bounds[0].get<double>(), bounds[1].get<double>(), bounds[2].get<double>(), bounds[3].get<double>()});
  }
  if (json.contains("viewport")) {
    const PropertyList& viewport = json["viewport"];
    const auto pixels = [](const PropertyList& n) {
      return n.is_number_unsigned() && n <= std::numeric_limits<int>::max();
    };
    if (!viewport.is_array() || viewport.size() != 2 || !pixels(viewport[0]) || !pixels(viewport[1])) {
      throw DriveError("context \"viewport\" must be [width, height] in pixels");
    }
    context.setViewport({viewport[0].get<int>(), viewport[1].get<int>()});
  }
  if (json.contains("gl") && !json["gl"].is_boolean()) {
    throw DriveError("context \"gl\" must be true or false");
  }
  if (json.contains("timeZone")) {
    if (!json["timeZone"].is_string()) {
      throw DriveError("context \"timeZone\" must be an IANA time zone name");
    }
    context.setTimeZone(json["timeZone"].get<std::string>());
  }
}

}  // namespace

DriveSession::DriveSession(const PropertyList& script, const DriveOptions& options)
    : script_(script),
      options_(options),
      context_(queue_),
      images_(options.scriptFolder, options.imagesFolder) {
  if (!script_.is_object()) {
    throw DriveError("a drive script is a JSON object with \"class\" and \"steps\"");
  }
  // Each patch as {"class": C, "settings": {...}}: the one of "class", or those of "patches".
  std::vector<std::pair<std::string, PropertyList>> patches;
  severalPatches_ = script_.contains("patches");
  if (severalPatches_ == script_.contains("class")) {
    throw DriveError("the script needs either a \"class\" (see qva list) or a \"patches\" array");
  }
  const PropertyList single = {{"class", script_.value("class", PropertyList())},
                               {"settings", script_.value("settings", PropertyList::object())}};
  const PropertyList entries = severalPatches_ ? script_["patches"] : PropertyList::array({single});
  if (!entries.is_array() || entries.empty()) {
    throw DriveError("\"patches\" must be an array of {\"class\": ..., \"settings\": {...}}");
  }
  for (const PropertyList& entry : entries) {
    if (!entry.is_object() || !entry.contains("class") || !entry["class"].is_string()) {
      throw DriveError("every patch needs a \"class\" (see qva list)");
    }
    const std::string className = entry["class"].get<std::string>();
    if (options_.registry == nullptr || options_.registry->find(className) == nullptr) {
      throw DriveError("unknown patch class \"" + className + "\" (see qva list)");
    }
    if (entry.contains("settings") && !entry["settings"].is_object()) {
      throw DriveError("\"settings\" must be an object");
    }
    patches.emplace_back(className, entry.value("settings", PropertyList::object()));
  }
  if (!script_.contains("steps") || !script_["steps"].is_array()) {
    throw DriveError("the script needs a \"steps\" array");
  }
  const PropertyList scriptContext = script_.value("context", PropertyList::object());
  applyContext(scriptContext, context_);
  const bool gl = scriptContext.value("gl", false);
  try {
    if (SimulatedGpiSettings::selectsSimulatedBox(scriptContext)) {
      gpiBox_ = std::make_shared<SimulatedGpiBox>();
    }
  } catch (const std::invalid_argument& error) {
    throw DriveError(std::string("context ") + error.what());
  }
  for (std::size_t i = 0; i < script_["steps"].size(); ++i) {
    const PropertyList& step = script_["steps"][i];
    checkStep(step, i, gl, patches.size());
    if (step.value("op", "") == "gpi") {
      if (!gpiBox_) {
        throw DriveError("step " + std::to_string(i) +
                         ": the gpi op needs context \"gpiDriver\": \"simulated\"");
      }
      try {
        SimulatedGpiSettings::check(step);
      } catch (const std::invalid_argument& error) {
        throw DriveError("step " + std::to_string(i) + ": " + error.what());
      }
    }
  }
  if (gl) {
    // Consumers draw into a canvas of the viewport's size, with depth, over the script's bounds.
    auto creation = Renderer::create(context_.viewport().width, context_.viewport().height);
    if (!creation.renderer) {
      throw DriveError("context \"gl\": " + creation.error);
    }
    renderer_ = std::move(creation.renderer);
    renderer_->prepareFrame(context_, context_.bounds());
    renderer_->provideDepth();
    renderer_->clear(Color{0, 0, 0, 0});
    images_.setGLContext(&renderer_->gl());
  }

  const auto collectHostLog = [this](const std::string& line) {
    std::lock_guard lock(logMutex_);
    hostLog_.push_back(line);
  };
  context_.setHostLog(collectHostLog);
  previousProcessLogSink_ = ProcessLog::setSink([this](const std::string& line) {
    std::lock_guard lock(logMutex_);
    processLog_.push_back(line);
  });
  for (const auto& [className, settings] : patches) {
    {
      // Only the patches created here take the simulated box; the process keeps its own driver.
      std::optional<ScopedGpiDriver> simulatedGpi;
      if (gpiBox_) {
        simulatedGpi.emplace(gpiBox_);
      }
      hosts_.push_back(std::make_unique<PatchHost>(options_.registry->create(className), context_));
    }
    hosts_.back()->patch().setHostLog(collectHostLog);
    applySettings(*hosts_.back(), settings);
  }
  startIssued_.assign(hosts_.size(), false);
}

DriveSession::~DriveSession() {
  hosts_.clear();
  ProcessLog::setSink(std::move(previousProcessLogSink_));
}

std::vector<PropertyList> DriveSession::runScript(const PropertyList& script, const DriveOptions& options) {
  std::vector<PropertyList> lines;
  DriveSession session(script, options);
  session.run([&](const PropertyList& line) { lines.push_back(line); });
  return lines;
}

PatchHost& DriveSession::hostFor(const PropertyList& step) {
  return *hosts_.at(patchIndex(step));
}

void DriveSession::applySettings(PatchHost& host, const PropertyList& settings) {
  for (const auto& [key, value] : settings.items()) {
    host.patch().setSerializedValueForKey(ScriptBytes::fromScript(value), key);
  }
}

void DriveSession::setInputs(PatchHost& host, const PropertyList& inputs) {
  const ValueJson::ImageDecoder decodeImage = [this](const PropertyList& imageValue) {
    return images_.imageForValue(imageValue);
  };
  Patch& patch = host.patch();
  for (const auto& [key, json] : inputs.items()) {
    const Patch::InputPort* port = patch.findInputPort(key);
    if (port == nullptr) {
      throw DriveError("unknown input port \"" + key + "\" of " + patch.patchClass().className);
    }
    try {
      patch.setInputValue(key, ValueJson::decode(json, port->description.type, decodeImage));
    } catch (const std::invalid_argument& error) {
      throw DriveError("input \"" + key + "\": " + error.what());
    }
  }
}

PropertyList DriveSession::outputs(PatchHost& host) {
  PropertyList outputs = PropertyList::object();
  const ValueJson::ImageEncoder encodeImage = [this](const ImageRef& image) {
    return images_.describe(image);
  };
  for (const Patch::OutputPort& port : host.patch().outputPorts()) {
    outputs[port.description.key] = ValueJson::encode(port.value, encodeImage);
  }
  return outputs;
}

void DriveSession::finishLine(PropertyList& line) {
  std::lock_guard lock(logMutex_);
  line["log"] = hostLog_;
  line["processLog"] = processLog_;
  line["userInfo"] = context_.userInfo();
  hostLog_.clear();
  processLog_.clear();
}

PropertyList DriveSession::runFrame(std::size_t index, const PropertyList& step) {
  const double time = step["time"].get<double>();
  const std::size_t patch = patchIndex(step);
  PatchHost& host = *hosts_.at(patch);
  setInputs(host, step.value("inputs", PropertyList::object()));
  if (!startIssued_[patch]) {
    startIssued_[patch] = true;
    host.start();
    host.enable();
  }
  if (renderer_) {
    // The host's drawing state for every frame; the pixels stay unless the step clears them.
    const Rect bounds = context_.bounds();
    renderer_->prepareFrame(context_, bounds);
    if (step.contains("clear")) {
      renderer_->clear(*ValueJson::decode(step["clear"], PortType::Color).colorValue());
    }
  }
  const PatchHost::FrameOutcome outcome =
      host.runFrame(time, frameArguments(index, step), step.value("force", false));
  PropertyList line = PropertyList::object();
  line["step"] = index;
  if (severalPatches_) {
    line["patch"] = patch;
  }
  line["time"] = ValueJson::encodeNumber(time);
  line["executed"] = outcome.executed;
  line["result"] = outcome.result ? PropertyList(*outcome.result) : PropertyList();
  line["executionTime"] =
      outcome.executionTime ? ValueJson::encodeNumber(*outcome.executionTime) : PropertyList();
  line["outputs"] = outputs(host);
  finishLine(line);
  if (step.value("canvas", false)) {
    line["canvas"] = canvasImage();
  }
  return line;
}

PropertyList DriveSession::frameArguments(std::size_t index, const PropertyList& step) {
  try {
    return textures_.resolve(step.value("arguments", PropertyList()));
  } catch (const std::invalid_argument& error) {
    throw DriveError("step " + std::to_string(index) + ": \"arguments\": " + error.what());
  }
}

PropertyList DriveSession::canvasImage() {
  std::optional<Bitmap> pixels = Bitmap::allocate(renderer_->width(), renderer_->height(),
                                                  static_cast<std::size_t>(renderer_->width()) * 4);
  if (!pixels) {
    throw DriveError("out of memory for reading back the canvas");
  }
  renderer_->readFrame(pixels->bytes(), pixels->rowBytes());
  return images_.describe(std::move(*pixels).toImage());
}

PropertyList DriveSession::runOp(std::size_t index, const PropertyList& step) {
  const std::string op = step["op"].get<std::string>();
  PropertyList line = {{"step", index}, {"op", op}};
  if (severalPatches_) {
    line["patch"] = patchIndex(step);
  }
  PatchHost& host = hostFor(step);
  Patch& patch = host.patch();
  if (op == "settings") {
    applySettings(host, step["settings"]);
    line["settings"] = step["settings"];
  } else if (op == "serialize") {
    PropertyList settings = PropertyList::object();
    for (const std::string& key : patch.patchClass().plugInKeys) {
      settings[key] = ScriptBytes::toScript(patch.serializedValueForKey(key));
    }
    line["settings"] = settings;
  } else if (op == "ports") {
    const PropertyList ports = PatchClassJson::ports(patch);
    line["inputs"] = ports["inputs"];
    line["outputs"] = ports["outputs"];
  } else if (op == "attributes") {
    line.update(PatchClassJson::attributes(patch.patchClass()));
  } else if (op == "start") {
    startPatches(step, line);
  } else if (op == "enable") {
    host.enable();
  } else if (op == "disable") {
    host.disable();
  } else if (op == "stop") {
    for (std::size_t each = 0; each < hosts_.size(); ++each) {
      if (reaches(step, each)) {
        hosts_[each]->stop();
      }
    }
  } else if (op == "wait") {
    const auto seconds = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(step["seconds"].get<double>()));
    if (step.contains("until")) {
      // Deliveries the step's own pump ran count: they arrived after the previous step.
      line["delivered"] =
          queue_.pumpUntil(seconds, [this] { return queue_.backgroundTasksRun() > deliveriesBeforeStep_; });
    } else {
      queue_.pumpFor(seconds);
    }
  } else if (op == "fs") {
    const FileAction action(step, options_.scriptFolder);
    std::vector<std::string> roots = options_.fileRoots;
    std::error_code noTemporaryFolder;
    if (const auto temporary = std::filesystem::temp_directory_path(noTemporaryFolder); !noTemporaryFolder) {
      roots.push_back(temporary.string());
    }
    if (const std::string refusal = action.refusal(roots); !refusal.empty()) {
      throw DriveError("step " + std::to_string(index) + ": " + refusal);
    }
    line["ok"] = action.apply();
  } else if (op == "gpi") {
    runGpiOp(step, line);
  }
  finishLine(line);
  return line;
}

void DriveSession::startPatches(const PropertyList& step, PropertyList& line) {
  bool started = true;
  for (std::size_t index = 0; index < hosts_.size(); ++index) {
    if (reaches(step, index)) {
      startIssued_[index] = true;
      started = hosts_[index]->start() && started;
    }
  }
  line["result"] = started;
}

void DriveSession::runGpiOp(const PropertyList& step, PropertyList& line) {
  SimulatedGpiSettings::apply(step, *gpiBox_);
  line["attached"] = gpiBox_->attached();
  line["inputValue"] = gpiBox_->currentInputValue();
  line["calls"] = gpiBox_->takeCalls();
}

void DriveSession::run(const Emit& emit) {
  const PropertyList& steps = script_["steps"];
  for (std::size_t index = 0; index < steps.size(); ++index) {
    deliveriesBeforeStep_ = queue_.backgroundTasksRun();
    queue_.pump();
    const PropertyList& step = steps[index];
    emit(step.contains("op") ? runOp(index, step) : runFrame(index, step));
  }
}

}  // namespace qva
