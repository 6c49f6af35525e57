#pragma once

#include <httplib.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "framework/PropertyList.h"

namespace qva {

// Reads a control server's event stream on a thread of its own and hands each state it carries to the
// function given, until the object goes (at the next message, which comes at least once a second).
class ControlEventStream {
 public:
  using StateHandler = std::function<void(const PropertyList& state)>;

  ControlEventStream(int port, StateHandler handler, httplib::Headers headers = {})
      : client_("127.0.0.1", port), handler_(std::move(handler)) {
    thread_ = std::thread([this, headers] {
      client_.Get("/api/events", headers, [this](const char* data, std::size_t size) {
        buffer_.append(data, size);
        for (std::size_t end; (end = buffer_.find("\n\n")) != std::string::npos; buffer_.erase(0, end + 2)) {
          const std::size_t payload = buffer_.find("data: ");
          if (payload < end) {
            handler_(parsePropertyList(buffer_.substr(payload + 6, end - payload - 6)));
          }
        }
        return !finished_;
      });
    });
  }
  ~ControlEventStream() {
    finished_ = true;
    thread_.join();
  }
  ControlEventStream(const ControlEventStream&) = delete;
  ControlEventStream& operator=(const ControlEventStream&) = delete;

 private:
  httplib::Client client_;
  StateHandler handler_;
  std::string buffer_;
  std::atomic<bool> finished_ = false;
  std::thread thread_;
};

}  // namespace qva
