#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/image/Bitmap.h"
#include "framework/Value.h"

namespace qva {

// A published input of a playing composition as a control client sees it.
struct PublishedInputState {
  std::string name;
  PortType type = PortType::Number;
  Value value;
  // From the port's attributes, where it has them.
  std::optional<double> minimum;
  std::optional<double> maximum;
  std::vector<std::string> menuItems;
};

struct PublishedOutputState {
  std::string name;
  Value value;
};

// How well the clock has been kept since playout began.
struct PlayoutPacing {
  long long framesShown = 0;
  long long framesLate = 0;
  long long framesDropped = 0;
  long long framesRepeated = 0;
  // Mean cost per frame, in milliseconds.
  double renderMilliseconds = 0;
  double outputMilliseconds = 0;
};

struct PlayoutState {
  std::string composition;
  double time = 0;
  long long frame = 0;
  double frameRate = 0;
  PlayoutPacing pacing;
  std::vector<PublishedInputState> inputs;
  std::vector<PublishedOutputState> outputs;
};

// What a control client (the control server, OSC) may ask of a composition playing live, and what it may
// see of it. Every member may be called from any thread. Requests never touch a patch directly: they
// become pending changes that the host thread applies together at the next frame boundary, as --set does.
class PlayoutControl {
 public:
  virtual ~PlayoutControl() = default;

  // The state as of the last frame shown.
  virtual PlayoutState state() const = 0;
  // Checks every change against its published input and queues them all to be applied together at the
  // next frame boundary. An unknown name or a value the input cannot take applies nothing and answers
  // why; success answers an empty string.
  virtual std::string setInputs(const std::vector<std::pair<std::string, Value>>& changes) = 0;
  // Replaces the composition with the one in the file at the next frame boundary; an empty string, or why
  // not (the composition playing goes on then). Which folders may be loaded from is the caller's check.
  virtual std::string load(const std::string& path) = 0;
  // Ends playout after the frame in progress.
  virtual void stop() = 0;
  // The last frame shown, premultiplied BGRA, or nothing before the first. A playout that does not
  // read frames back for its outputs reads one back when asked.
  virtual std::shared_ptr<const Bitmap> latestFrame() = 0;
  // Called on the host thread after each frame is shown, with its number; keep it short (wake a waiting
  // thread). Replaces the previous observer; an empty function removes it.
  virtual void setFrameObserver(std::function<void(long long frame)> observer) = 0;
};

}  // namespace qva
