#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "host/PlayoutControl.h"
#include "host/control/ControlSettings.h"
#include "host/control/FrameSignal.h"
#include "host/control/LoadFolders.h"
#include "host/control/SnapshotCache.h"

namespace httplib {
class Server;
class Request;
class Response;
}  // namespace httplib

namespace qva {

// The HTTP control API of a composition playing live, its event stream, snapshots and control page.
// Requests only become calls on the PlayoutControl: changes are queued for the next frame boundary and
// nothing from the network touches a patch.
class ControlServer {
 public:
  // Largest number of event streams open at once; each holds one of the server's threads.
  static constexpr int maximumEventStreams = 8;
  // The cookie the page's sign-in sets when the server asks for a token.
  static constexpr const char* tokenCookie = "qva_control_token";

  ControlServer(PlayoutControl& playout, ControlSettings settings);
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  // Binds the address and port and answers on threads of its own from then on; an empty string, or why
  // it could not listen.
  std::string start();
  // Closes the event streams and stops answering; called by the destructor too.
  void stop();
  // The port listened on, once started.
  int port() const { return port_; }

  // Whether an address (or a Host header's name) is this machine's loopback.
  static bool isLoopbackAddress(const std::string& address);

 private:
  void addRoutes();
  // Answers a request that may not go on (wrong host, foreign page, missing token) and says so.
  bool refuse(const httplib::Request& request, httplib::Response& response) const;
  bool authorized(const httplib::Request& request) const;
  void putInput(const httplib::Request& request, httplib::Response& response);
  void patchInputs(const httplib::Request& request, httplib::Response& response);
  void loadComposition(const httplib::Request& request, httplib::Response& response);
  void streamEvents(httplib::Response& response);
  void sendSnapshot(httplib::Response& response);

  PlayoutControl& playout_;
  const ControlSettings settings_;
  const LoadFolders loadFolders_;
  // Shared with the playout's frame observer, which may still be running as the server goes.
  std::shared_ptr<FrameSignal> frames_ = std::make_shared<FrameSignal>();
  SnapshotCache snapshots_;
  std::unique_ptr<httplib::Server> server_;
  std::thread listener_;
  std::atomic<int> eventStreams_{0};
  int port_ = 0;
};

}  // namespace qva
