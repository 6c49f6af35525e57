#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>

#include "host/PlayoutControl.h"

namespace qva {

// Receives OSC over UDP for a composition playing live: "/qva/input/NAME VALUE" sets a published input
// through the same checks and the same queue as the HTTP API. VALUE is an int, float, string, true or
// false, or three or four numbers for a Color input. Messages that cannot be applied
// go to the process log; OSC has no answer to give.
class OscReceiver {
 public:
  static constexpr const char* inputPrefix = "/qva/input/";

  explicit OscReceiver(PlayoutControl& playout) : playout_(playout) {}
  ~OscReceiver();
  OscReceiver(const OscReceiver&) = delete;
  OscReceiver& operator=(const OscReceiver&) = delete;

  // Binds the UDP port (0 picks a free one) on the address and receives on a thread of its own; an
  // empty string, or why not.
  std::string start(const std::string& bindAddress, int port);
  void stop();
  int port() const { return port_; }

 private:
  void receive();
  // A message, or each message of a bundle (bundles nest at most a few levels).
  void dispatch(std::uint8_t* data, std::size_t size, int depth);
  void apply(const std::string& path, std::uint8_t* data, std::size_t size);

  PlayoutControl& playout_;
  int socket_ = -1;
  int wake_ = -1;
  int port_ = 0;
  std::thread receiver_;
};

}  // namespace qva
