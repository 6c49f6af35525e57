#include "host/control/OscReceiver.h"

#include <arpa/inet.h>
#include <lo/lo_lowlevel.h>
#include <netdb.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <vector>

#include "framework/ProcessLog.h"
#include "host/control/ControlRequestError.h"
#include "host/control/PublishedInputJson.h"

namespace qva {

namespace {

constexpr std::size_t maximumDatagram = 65536;
constexpr int maximumBundleDepth = 4;
constexpr char bundleMark[8] = {'#', 'b', 'u', 'n', 'd', 'l', 'e', '\0'};

PropertyList scalarJson(char type, lo_arg* argument) {
  switch (type) {
    case LO_INT32:
      return argument->i;
    case LO_INT64:
      return argument->h;
    case LO_FLOAT:
      return argument->f;
    case LO_DOUBLE:
      return argument->d;
    case LO_STRING:
    case LO_SYMBOL:
      return &argument->s;
    case LO_CHAR:
      return std::string(1, static_cast<char>(argument->c));
    case LO_TRUE:
      return true;
    case LO_FALSE:
      return false;
    default:
      throw ControlRequestError(400, std::string("OSC arguments of type '") + type + "' are no input value");
  }
}

// The JSON value of an OSC message's arguments, as a control client would have sent it.
PropertyList argumentsJson(const char* types, lo_arg** values, int count) {
  if (count == 1) {
    return scalarJson(types[0], values[0]);
  }
  if (count == 3 || count == 4) {
    PropertyList colour = PropertyList::array();
    for (int index = 0; index < count; ++index) {
      if (!lo_is_numerical_type(static_cast<lo_type>(types[index]))) {
        throw ControlRequestError(400, "a colour is three or four numbers");
      }
      colour.push_back(static_cast<double>(lo_hires_val(static_cast<lo_type>(types[index]), values[index])));
    }
    return colour;
  }
  throw ControlRequestError(400, "an input takes one value, or three or four numbers for a colour");
}

}  // namespace

OscReceiver::~OscReceiver() {
  stop();
}

std::string OscReceiver::start(const std::string& bindAddress, int port) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_DGRAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const std::string portText = std::to_string(port);
  const std::string failure = "OSC cannot listen on " + bindAddress + " port " + portText + ": ";
  if (const int error = getaddrinfo(bindAddress.c_str(), portText.c_str(), &hints, &found); error != 0) {
    return failure + gai_strerror(error);
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> addresses(found, &freeaddrinfo);
  socket_ = ::socket(found->ai_family, found->ai_socktype | SOCK_CLOEXEC, found->ai_protocol);
  if (socket_ < 0 || ::bind(socket_, found->ai_addr, found->ai_addrlen) != 0) {
    const std::string why = std::strerror(errno);
    stop();
    return failure + why;
  }
  sockaddr_storage bound{};
  socklen_t length = sizeof bound;
  getsockname(socket_, reinterpret_cast<sockaddr*>(&bound), &length);
  port_ = ntohs(bound.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&bound)->sin6_port
                                            : reinterpret_cast<sockaddr_in*>(&bound)->sin_port);
  wake_ = eventfd(0, EFD_CLOEXEC);
  receiver_ = std::thread([this] { receive(); });
  return {};
}

void OscReceiver::stop() {
  if (receiver_.joinable()) {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(wake_, &one, sizeof one);
    receiver_.join();
  }
  for (int* descriptor : {&socket_, &wake_}) {
    if (*descriptor >= 0) {
      ::close(*descriptor);
      *descriptor = -1;
    }
  }
}

void OscReceiver::receive() {
  std::vector<std::uint8_t> datagram(maximumDatagram);
  pollfd watched[2] = {{socket_, POLLIN, 0}, {wake_, POLLIN, 0}};
  while (::poll(watched, 2, -1) >= 0 || errno == EINTR) {
    if (watched[1].revents != 0) {
      return;
    }
    if (watched[0].revents == 0) {
      continue;
    }
    const ssize_t size = ::recv(socket_, datagram.data(), datagram.size(), 0);
    if (size > 0) {
      dispatch(datagram.data(), static_cast<std::size_t>(size), 0);
    }
  }
}

void OscReceiver::dispatch(std::uint8_t* data, std::size_t size, int depth) {
  if (size >= 16 && std::memcmp(data, bundleMark, sizeof bundleMark) == 0) {
    // "#bundle", a time tag (applied at once: changes wait for the next frame anyway), then elements
    // each led by its size.
    if (depth == maximumBundleDepth) {
      return;
    }
    for (std::size_t offset = 16; offset + 4 <= size;) {
      std::uint32_t length;
      std::memcpy(&length, data + offset, 4);
      length = ntohl(length);
      offset += 4;
      if (length > size - offset) {
        return;
      }
      dispatch(data + offset, length, depth + 1);
      offset += length;
    }
    return;
  }
  const char* path = lo_get_path(data, static_cast<ssize_t>(size));
  if (path == nullptr) {
    ProcessLog::write("OSC: a datagram that is no OSC message was ignored");
    return;
  }
  apply(path, data, size);
}

void OscReceiver::apply(const std::string& path, std::uint8_t* data, std::size_t size) {
  if (!path.starts_with(inputPrefix) || path.size() == std::strlen(inputPrefix)) {
    ProcessLog::write("OSC " + path + ": the address is not /qva/input/NAME");
    return;
  }
  int result = 0;
  const std::unique_ptr<std::remove_pointer_t<lo_message>, decltype(&lo_message_free)> message(
      lo_message_deserialise(data, size, &result), &lo_message_free);
  if (!message) {
    ProcessLog::write("OSC " + path + ": the message is malformed");
    return;
  }
  const std::string name = path.substr(std::strlen(inputPrefix));
  try {
    const PropertyList json =
        argumentsJson(lo_message_get_types(message.get()), lo_message_get_argv(message.get()),
                      lo_message_get_argc(message.get()));
    const Value value = PublishedInputJson::decode(name, json, playout_.state().inputs);
    if (const std::string why = playout_.setInputs({{name, value}}); !why.empty()) {
      ProcessLog::write("OSC " + path + ": " + why);
    }
  } catch (const ControlRequestError& error) {
    ProcessLog::write("OSC " + path + ": " + error.what());
  }
}

}  // namespace qva
