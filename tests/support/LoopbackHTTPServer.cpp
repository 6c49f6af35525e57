#include "support/LoopbackHTTPServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace qva {

namespace {

constexpr int kPollMilliseconds = 20;

sockaddr_in loopbackAddress(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

std::string loopbackURL(std::uint16_t port, const std::string& path) {
  return "http://127.0.0.1:" + std::to_string(port) + path;
}

std::uint16_t boundPort(int socket) {
  sockaddr_in address{};
  socklen_t length = sizeof(address);
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

int boundLoopbackSocket() {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopbackAddress(0);
  if (socket < 0 || ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    throw std::runtime_error("cannot bind a loopback socket");
  }
  return socket;
}

std::string trimmed(const std::string& text) {
  const auto first = text.find_first_not_of(" \t");
  const auto last = text.find_last_not_of(" \t\r");
  return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
}

}  // namespace

std::optional<std::string> LoopbackHTTPServer::Request::header(const std::string& name) const {
  for (const auto& [fieldName, value] : headers) {
    if (::strcasecmp(fieldName.c_str(), name.c_str()) == 0) {
      return value;
    }
  }
  return std::nullopt;
}

bool LoopbackHTTPServer::Connection::write(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

LoopbackHTTPServer::LoopbackHTTPServer(Handler handler) : handler_(std::move(handler)) {
  listener_ = boundLoopbackSocket();
  ::listen(listener_, 64);
  port_ = boundPort(listener_);
  acceptor_ = std::thread([this] { acceptConnections(); });
}

LoopbackHTTPServer::~LoopbackHTTPServer() {
  stopping_ = true;
  acceptor_.join();
  for (ConnectionThread& connection : connections_) {
    connection.thread.join();
  }
  ::close(listener_);
}

std::string LoopbackHTTPServer::url(const std::string& path) const {
  return loopbackURL(port_, path);
}

std::vector<LoopbackHTTPServer::Request> LoopbackHTTPServer::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

std::string LoopbackHTTPServer::response(int status, std::string_view body, std::string_view extraHeaders) {
  std::string text = "HTTP/1.1 " + std::to_string(status) +
                     " Status\r\nContent-Length: " + std::to_string(body.size()) +
                     "\r\nConnection: close\r\n";
  text.append(extraHeaders);
  text += "\r\n";
  text.append(body);
  return text;
}

void LoopbackHTTPServer::bypassProxiesForLoopback() {
  ::setenv("no_proxy", "127.0.0.1,localhost", 1);
  ::setenv("NO_PROXY", "127.0.0.1,localhost", 1);
}

void LoopbackHTTPServer::holdBack(std::chrono::milliseconds duration, const std::atomic<bool>& release) {
  const auto end = std::chrono::steady_clock::now() + duration;
  while (!release && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

std::string LoopbackHTTPServer::closedURL(const std::string& path) {
  const int socket = boundLoopbackSocket();
  const std::uint16_t port = boundPort(socket);
  ::close(socket);
  return loopbackURL(port, path);
}

void LoopbackHTTPServer::acceptConnections() {
  while (!stopping_) {
    pollfd waiting{listener_, POLLIN, 0};
    if (::poll(&waiting, 1, kPollMilliseconds) <= 0) {
      continue;
    }
    const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket >= 0) {
      reapEndedConnections();
      auto done = std::make_shared<std::atomic<bool>>(false);
      connections_.push_back({std::thread([this, socket, done] {
                                serve(socket);
                                *done = true;
                              }),
                              done});
    }
  }
}

void LoopbackHTTPServer::reapEndedConnections() {
  std::erase_if(connections_, [](ConnectionThread& connection) {
    if (!*connection.done) {
      return false;
    }
    connection.thread.join();
    return true;
  });
}

void LoopbackHTTPServer::serve(int socket) {
  std::string received;
  char buffer[16384];
  std::size_t headerEnd = std::string::npos;
  Request request;
  std::size_t contentLength = 0;
  while (!stopping_) {
    if (headerEnd != std::string::npos && received.size() >= headerEnd + 4 + contentLength) {
      request.body = received.substr(headerEnd + 4, contentLength);
      {
        std::lock_guard lock(mutex_);
        requests_.push_back(request);
      }
      Connection connection(socket);
      handler_(request, connection);
      break;
    }
    pollfd waiting{socket, POLLIN, 0};
    if (::poll(&waiting, 1, kPollMilliseconds) <= 0) {
      continue;
    }
    const ssize_t count = ::recv(socket, buffer, sizeof(buffer), 0);
    if (count <= 0) {
      break;
    }
    received.append(buffer, static_cast<std::size_t>(count));
    if (headerEnd == std::string::npos && (headerEnd = received.find("\r\n\r\n")) != std::string::npos) {
      std::size_t lineStart = received.find("\r\n") + 2;
      const std::string requestLine = received.substr(0, lineStart - 2);
      const auto space = requestLine.find(' ');
      request.method = requestLine.substr(0, space);
      request.target = requestLine.substr(space + 1, requestLine.rfind(' ') - space - 1);
      while (lineStart < headerEnd) {
        const auto lineEnd = received.find("\r\n", lineStart);
        const std::string line = received.substr(lineStart, lineEnd - lineStart);
        const auto colon = line.find(':');
        if (colon != std::string::npos) {
          request.headers.emplace_back(line.substr(0, colon), trimmed(line.substr(colon + 1)));
        }
        lineStart = lineEnd + 2;
      }
      contentLength = std::stoul(request.header("Content-Length").value_or("0"));
    }
  }
  ::shutdown(socket, SHUT_RDWR);
  ::close(socket);
}

}  // namespace qva
