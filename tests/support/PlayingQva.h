#pragma once

#include <sys/types.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qva {

// The built qva playing with its control server (and OSC receiver) on ports it picks, for the tests and
// benchmarks that steer a real playout. Ended with SIGTERM when the object goes.
class PlayingQva {
 public:
  // Runs `qva play ARGUMENTS --control 0 [--osc 0]` and waits until it says where it listens.
  PlayingQva(const std::vector<std::string>& arguments, bool withOsc);
  ~PlayingQva();
  PlayingQva(const PlayingQva&) = delete;
  PlayingQva& operator=(const PlayingQva&) = delete;

  // Whether it is listening; when not, errors() says why.
  bool ready() const { return controlPort_ > 0; }
  int controlPort() const { return controlPort_; }
  int oscPort() const { return oscPort_; }
  // What it has written on standard error so far.
  std::string errors() const;
  // Waits for it to end by itself, at most the seconds given; its exit status, or -1.
  int waitForExit(int seconds);

 private:
  void readErrors(int descriptor);

  pid_t child_ = 0;
  int controlPort_ = 0;
  int oscPort_ = 0;
  int exitStatus_ = -1;
  std::thread reader_;
  mutable std::mutex mutex_;
  std::string errors_;
};

}  // namespace qva
