#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace qva {

// A small HTTP/1.1 server on 127.0.0.1 for the network tests: each connection gets its own thread,
// one request is read and handed to the handler, which writes whatever raw bytes it likes (a normal
// answer, a chunked one, a slow one, or nothing at all) and the connection is closed after it.
class LoopbackHTTPServer {
 public:
  struct Request {
    std::string method;
    std::string target;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;

    // The value of the named header (compared without case), or none.
    std::optional<std::string> header(const std::string& name) const;
  };

  class Connection {
   public:
    explicit Connection(int socket) : socket_(socket) {}
    // False once the peer has gone.
    bool write(std::string_view bytes);

   private:
    int socket_;
  };

  using Handler = std::function<void(const Request&, Connection&)>;

  explicit LoopbackHTTPServer(Handler handler);
  ~LoopbackHTTPServer();
  LoopbackHTTPServer(const LoopbackHTTPServer&) = delete;
  LoopbackHTTPServer& operator=(const LoopbackHTTPServer&) = delete;

  std::uint16_t port() const { return port_; }
  std::string url(const std::string& path) const;
  // Every request received so far, in arrival order.
  std::vector<Request> requests() const;

  // A whole response with a Content-Length and "Connection: close"; extra header lines end in "\r\n".
  static std::string response(int status, std::string_view body, std::string_view extraHeaders = {});
  // Keeps proxies named in the environment (a CI machine's, say) away from loopback URLs.
  static void bypassProxiesForLoopback();
  // A URL with the path on a loopback port on which nothing listens.
  static std::string closedURL(const std::string& path);
  // Holds a handler back for the duration or until released, in small steps so that a server being
  // torn down is not held up for long.
  static void holdBack(std::chrono::milliseconds duration, const std::atomic<bool>& release);

 private:
  void acceptConnections();
  void serve(int socket);

  Handler handler_;
  int listener_ = -1;
  std::uint16_t port_ = 0;
  std::atomic<bool> stopping_{false};
  mutable std::mutex mutex_;
  std::vector<Request> requests_;
  struct ConnectionThread {
    std::thread thread;
    std::shared_ptr<std::atomic<bool>> done;
  };
  // Joins the threads of connections that have ended, so that long runs do not pile them up.
  void reapEndedConnections();

  std::vector<ConnectionThread> connections_;
  std::thread acceptor_;
};

}  // namespace qva
