#include "host/Playout.h"

#include <algorithm>

#include "host/HostPatches.h"

namespace qva {

namespace {

// Frames being read back at once: one drawn, one in transfer.
constexpr std::size_t kReadsInFlight = 2;

bool isScalar(PortType type) {
  return type == PortType::Boolean || type == PortType::Index || type == PortType::Number ||
         type == PortType::String;
}

}  // namespace

Playout::Playout(Renderer& renderer, PlayoutClock& clock, double frameRate, const Composition& composition)
    : renderer_(renderer),
      clock_(clock),
      frameRate_(frameRate),
      pacer_(frameRate),
      pool_(renderer.width(), renderer.height()),
      readback_(renderer.width(), renderer.height(), kReadsInFlight),
      scene_(makeScene(composition, 0)),
      hostThread_(std::this_thread::get_id()) {
  state_.composition = composition.path();
  state_.frameRate = frameRate;
  state_.inputs = inputStates();
}

Playout::~Playout() {
  std::lock_guard lock(mutex_);
  for (PendingLoad& load : pendingLoads_) {
    load.answer.set_value("playout has ended");
  }
}

std::unique_ptr<Playout::Scene> Playout::makeScene(const Composition& composition, long long firstFrame) {
  auto scene = std::make_unique<Scene>(composition);
  scene->context.setCompositionPath(composition.path());
  scene->firstFrame = firstFrame;
  renderer_.setLogicalWidth(composition.width());
  renderer_.beginFrame(scene->context, composition.background());
  scene->graph = std::make_unique<CompositionGraph>(scene->composition, availablePatches(), scene->context,
                                                    scene->queue);
  return scene;
}

void Playout::play(std::optional<long long> frames, const std::function<void()>& afterFrame) {
  {
    std::lock_guard lock(mutex_);
    playing_ = true;
  }
  const bool readBack =
      framesInMemory_ || outputs_.empty() ||
      std::any_of(outputs_.begin(), outputs_.end(), [](const auto& output) { return output->takesPixels(); });
  std::shared_ptr<const Bitmap> previous;
  bool clockStarted = false;
  while (!stopRequested_) {
    FramePacer::Slot slot = clockStarted ? pacer_.next(clock_.now()) : FramePacer::Slot{};
    if (frames && slot.frame >= *frames) {
      break;
    }
    applyPending(slot.frame);
    const auto renderStart = clock_.now();
    drawFrame(slot.frame, readBack);
    const auto rendered = clock_.now();
    if (!clockStarted) {
      // The first frame loads shaders, fonts and files; were the clock running, the frames after it
      // would be late or dropped. Frame 0 is due once it is drawn.
      pacer_.start(rendered);
      slot = pacer_.next(rendered);
      clockStarted = true;
    }
    clock_.waitUntil(slot.due);
    const auto showStart = clock_.now();
    // The outputs keep the clock's rate: the last frame again for each frame dropped, and for a frame
    // that could not be had.
    const std::shared_ptr<const Bitmap> frame = readback_.full() ? collectFrame() : nullptr;
    const bool missing = !frame && previous && slot.frame > 0;
    for (long long repeat = 0; previous && repeat < slot.skipped + (missing ? 1 : 0); ++repeat) {
      offer(previous);
    }
    if (frame) {
      offer(frame);
      previous = frame;
    }
    const auto offered = clock_.now();
    pacer_.shown(slot, showStart, rendered - renderStart, offered - showStart);
    publishState(slot, previous);
    if (afterFrame) {
      afterFrame();
    }
  }
  // The frames still being read back go out as the last ones.
  while (!readback_.empty()) {
    if (const auto frame = collectFrame()) {
      offer(frame);
      std::lock_guard lock(mutex_);
      latestFrame_ = frame;
    }
  }
  scene_->graph->stop();
  std::lock_guard lock(mutex_);
  playing_ = false;
  for (PendingLoad& load : pendingLoads_) {
    load.answer.set_value("playout has ended");
  }
  pendingLoads_.clear();
}

void Playout::drawFrame(long long frame, bool readBack) {
  Scene& scene = *scene_;
  renderer_.setLogicalWidth(scene.composition.width());
  renderer_.beginFrame(scene.context, scene.composition.background());
  scene.graph->evaluate(static_cast<double>(frame - scene.firstFrame) / frameRate_);
  if (readBack) {
    renderer_.beginRead(readback_);
  }
  for (const auto& output : outputs_) {
    output->offerCanvas(renderer_.canvasTexture());
  }
}

std::shared_ptr<const Bitmap> Playout::collectFrame() {
  std::shared_ptr<Bitmap> bitmap = pool_.take();
  if (!bitmap) {
    // The read is let go all the same, so that the next can begin.
    readback_.discard();
    return nullptr;
  }
  if (!readback_.collect(bitmap->bytes(), bitmap->rowBytes())) {
    return nullptr;
  }
  return bitmap;
}

void Playout::offer(const std::shared_ptr<const Bitmap>& frame) {
  for (const auto& output : outputs_) {
    output->offer(frame);
  }
}

void Playout::applyPending(long long nextFrame) {
  std::vector<std::pair<std::string, Value>> inputs;
  std::vector<PendingLoad> loads;
  {
    std::lock_guard lock(mutex_);
    inputs.swap(pendingInputs_);
    loads.swap(pendingLoads_);
  }
  for (PendingLoad& load : loads) {
    load.answer.set_value(loadNow(load.path, nextFrame));
  }
  for (const auto& [name, value] : inputs) {
    try {
      graph().setPublishedInput(name, value.convertedTo(graph().publishedInputType(name)));
    } catch (const std::invalid_argument&) {
      // Checked against the composition that played when the change was asked; one loaded since may
      // not have the input.
    }
  }
}

std::string Playout::loadNow(const std::string& path, long long firstFrame) {
  try {
    std::unique_ptr<Scene> loaded = makeScene(Composition::load(path), firstFrame);
    scene_->graph->stop();
    scene_ = std::move(loaded);
  } catch (const CompositionError& error) {
    return error.what();
  }
  std::lock_guard lock(mutex_);
  state_.composition = scene_->composition.path();
  state_.inputs = inputStates();
  return {};
}

void Playout::publishState(const FramePacer::Slot& slot, std::shared_ptr<const Bitmap> frame) {
  std::vector<PublishedOutputState> outputs;
  for (const auto& [name, port] : scene_->composition.publishedOutputs()) {
    outputs.push_back({name, scene_->graph->outputValue(port)});
  }
  std::vector<PublishedInputState> inputs = inputStates();
  std::function<void(long long)> observer;
  {
    std::lock_guard lock(mutex_);
    state_.frame = slot.frame;
    state_.time = static_cast<double>(slot.frame - scene_->firstFrame) / frameRate_;
    state_.pacing = pacer_.pacing();
    state_.inputs = std::move(inputs);
    state_.outputs = std::move(outputs);
    latestFrame_ = std::move(frame);
    observer = observer_;
  }
  if (observer) {
    observer(slot.frame);
  }
}

std::vector<PublishedInputState> Playout::inputStates() const {
  std::vector<PublishedInputState> states;
  const CompositionGraph& graph = *scene_->graph;
  for (const auto& [name, port] : scene_->composition.publishedInputs()) {
    const Patch::InputPort* input =
        graph.nodes()[graph.nodeIndex(port.patchId)].host->patch().findInputPort(port.portKey);
    if (input == nullptr) {
      continue;
    }
    const PortAttributes& attributes = input->description.attributes;
    states.push_back({name, input->description.type, input->value, attributes.minimum, attributes.maximum,
                      attributes.menuItems});
  }
  return states;
}

std::vector<std::string> Playout::finishOutputs() {
  std::vector<std::string> errors;
  for (const auto& output : outputs_) {
    errors.push_back(output->finish());
  }
  return errors;
}

PlayoutState Playout::state() const {
  std::lock_guard lock(mutex_);
  return state_;
}

std::string Playout::setInputs(const std::vector<std::pair<std::string, Value>>& changes) {
  std::lock_guard lock(mutex_);
  for (const auto& [name, value] : changes) {
    auto input = std::find_if(state_.inputs.begin(), state_.inputs.end(),
                              [&name](const PublishedInputState& state) { return state.name == name; });
    if (input == state_.inputs.end()) {
      return "no published input \"" + name + "\"";
    }
    const std::optional<PortType> type = value.type();
    if (!type || (*type != input->type && !(isScalar(*type) && isScalar(input->type)))) {
      return "the published input \"" + name + "\" takes a " + std::string(portTypeName(input->type)) +
             ", not a " + (type ? std::string(portTypeName(*type)) : std::string("value of no type"));
    }
  }
  pendingInputs_.insert(pendingInputs_.end(), changes.begin(), changes.end());
  return {};
}

std::string Playout::load(const std::string& path) {
  if (std::this_thread::get_id() == hostThread_) {
    // From the frame observer, between two frames.
    return loadNow(path, state().frame + 1);
  }
  std::future<std::string> answer;
  {
    std::lock_guard lock(mutex_);
    if (!playing_) {
      return "the composition is not playing";
    }
    pendingLoads_.push_back({path, {}});
    answer = pendingLoads_.back().answer.get_future();
  }
  return answer.get();
}

void Playout::stop() {
  stopRequested_ = true;
  clock_.wake();
}

std::shared_ptr<const Bitmap> Playout::latestFrame() {
  std::lock_guard lock(mutex_);
  return latestFrame_;
}

void Playout::setFrameObserver(std::function<void(long long frame)> observer) {
  std::lock_guard lock(mutex_);
  observer_ = std::move(observer);
}

}  // namespace qva
