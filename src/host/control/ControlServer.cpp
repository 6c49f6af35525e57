#include "host/control/ControlServer.h"

#include <httplib.h>
#include <openssl/crypto.h>
#include <openssl/sha.h>

#include <algorithm>
#include <chrono>

#include "host/control/ControlRequestError.h"
#include "host/control/PlayoutStateJson.h"
#include "host/control/PublishedInputJson.h"

namespace qva {

namespace {

constexpr const char* jsonType = "application/json";
// Enough threads for the event streams and for requests beside them.
constexpr std::size_t serverThreads = ControlServer::maximumEventStreams + 8;
// A stream with nothing to say still writes now and then, so that a client gone away is noticed.
constexpr std::chrono::milliseconds keepAliveInterval{1000};

void answerError(httplib::Response& response, int status, const std::string& message) {
  response.status = status;
  response.set_content(PlayoutStateJson::text({{"error", message}}), jsonType);
}

PropertyList parseBody(const httplib::Request& request) {
  try {
    return parsePropertyList(request.body);
  } catch (const PropertyList::exception& error) {
    throw ControlRequestError(400, std::string("the request body is not valid JSON: ") + error.what());
  }
}

// Compares in a time that does not tell how much of the token was right.
bool sameSecret(const std::string& given, const std::string& expected) {
  return !expected.empty() && given.size() == expected.size() &&
         CRYPTO_memcmp(given.data(), expected.data(), expected.size()) == 0;
}

// What the cookie holds: the token's SHA-256 in hexadecimal, which passes through any header unaltered
// and does not give the token itself away.
std::string cookieSecret(const std::string& token) {
  unsigned char digest[SHA256_DIGEST_LENGTH];
  SHA256(reinterpret_cast<const unsigned char*>(token.data()), token.size(), digest);
  static constexpr char hex[] = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : digest) {
    text += hex[byte >> 4];
    text += hex[byte & 15];
  }
  return text;
}

std::string cookieValue(const std::string& header, const std::string& name) {
  std::size_t start = 0;
  while (start < header.size()) {
    const std::size_t end = std::min(header.find(';', start), header.size());
    std::string_view pair(header.data() + start, end - start);
    while (!pair.empty() && pair.front() == ' ') {
      pair.remove_prefix(1);
    }
    if (pair.size() > name.size() && pair.substr(0, name.size()) == name && pair[name.size()] == '=') {
      return std::string(pair.substr(name.size() + 1));
    }
    start = end + 1;
  }
  return {};
}

// The host name of a Host header or an origin's authority, without the port.
std::string hostName(std::string_view authority) {
  if (authority.starts_with('[')) {
    return std::string(authority.substr(0, authority.find(']') + 1));
  }
  return std::string(authority.substr(0, authority.find(':')));
}

// Runs a handler and turns a refused request into its answer.
template <typename Handler>
httplib::Server::Handler guarded(Handler handler) {
  return [handler](const httplib::Request& request, httplib::Response& response) {
    try {
      handler(request, response);
    } catch (const ControlRequestError& error) {
      answerError(response, error.status(), error.what());
    }
  };
}

}  // namespace

bool ControlServer::isLoopbackAddress(const std::string& address) {
  return address.starts_with("127.") || address == "::1" || address == "[::1]" || address == "localhost";
}

ControlServer::ControlServer(PlayoutControl& playout, ControlSettings settings)
    : playout_(playout),
      settings_(std::move(settings)),
      loadFolders_(settings_.loadFolders),
      snapshots_(playout),
      server_(std::make_unique<httplib::Server>()) {
  addRoutes();
}

ControlServer::~ControlServer() {
  stop();
}

std::string ControlServer::start() {
  server_->new_task_queue = [] { return new httplib::ThreadPool(serverThreads); };
  server_->set_payload_max_length(settings_.maximumBodyBytes);
  // Headers and body go out in separate writes; without this each answer waits for the client's
  // delayed acknowledgement.
  server_->set_tcp_nodelay(true);
  server_->set_read_timeout(5, 0);
  server_->set_write_timeout(5, 0);
  if (settings_.port == 0) {
    port_ = server_->bind_to_any_port(settings_.bindAddress);
  } else if (server_->bind_to_port(settings_.bindAddress, settings_.port)) {
    port_ = settings_.port;
  }
  if (port_ <= 0) {
    port_ = 0;
    return "the control server cannot listen on " + settings_.bindAddress + " port " +
           std::to_string(settings_.port) + " (in use, or not an address of this machine)";
  }
  playout_.setFrameObserver([frames = frames_](long long) { frames->notify(); });
  listener_ = std::thread([this] { server_->listen_after_bind(); });
  return {};
}

void ControlServer::stop() {
  if (!listener_.joinable()) {
    return;
  }
  playout_.setFrameObserver({});
  frames_->close();
  server_->stop();
  listener_.join();
}

bool ControlServer::authorized(const httplib::Request& request) const {
  if (settings_.token.empty()) {
    return true;
  }
  const std::string authorization = request.get_header_value("Authorization");
  if (authorization.starts_with("Bearer ") && sameSecret(authorization.substr(7), settings_.token)) {
    return true;
  }
  return sameSecret(cookieValue(request.get_header_value("Cookie"), tokenCookie),
                    cookieSecret(settings_.token));
}

bool ControlServer::refuse(const httplib::Request& request, httplib::Response& response) const {
  const std::string host = request.get_header_value("Host");
  // A server on loopback answers only to loopback names: a web page whose name was pointed at 127.0.0.1
  // must not reach it.
  if (isLoopbackAddress(settings_.bindAddress) && !isLoopbackAddress(hostName(host))) {
    answerError(response, 403, "this control server answers only to requests for the local machine");
    return true;
  }
  // Browsers name the page that sent a request; only the control page itself may send one.
  const std::string origin = request.get_header_value("Origin");
  if (!origin.empty() && origin != "http://" + host) {
    answerError(response, 403, "requests from other web pages are refused");
    return true;
  }
  if (authorized(request)) {
    return false;
  }
  // Opening /?token=TOKEN signs the browser in: the page's requests carry the cookie from then on.
  if (request.path == "/" && request.has_param("token") &&
      sameSecret(request.get_param_value("token"), settings_.token)) {
    response.set_header("Set-Cookie", std::string(tokenCookie) + "=" + cookieSecret(settings_.token) +
                                          "; Path=/; HttpOnly; SameSite=Strict");
    response.set_redirect("/", 303);
    return true;
  }
  response.set_header("WWW-Authenticate", "Bearer");
  answerError(response, 401,
              "this control server needs its token: send \"Authorization: Bearer TOKEN\", or open "
              "/?token=TOKEN in a browser");
  return true;
}

void ControlServer::addRoutes() {
  httplib::Server& server = *server_;
  server.set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
    return refuse(request, response) ? httplib::Server::HandlerResponse::Handled
                                     : httplib::Server::HandlerResponse::Unhandled;
  });
  server.set_error_handler([](const httplib::Request&, httplib::Response& response) {
    if (response.body.empty()) {
      answerError(response, response.status,
                  response.status == 413   ? "the request body is too large"
                  : response.status == 404 ? "there is no such resource"
                                           : "the request cannot be answered");
    }
  });
  server.Get("/api/state", [this](const httplib::Request&, httplib::Response& response) {
    response.set_content(PlayoutStateJson::text(PlayoutStateJson::encode(playout_.state())), jsonType);
  });
  server.Put("/api/inputs/(.+)",
             guarded([this](const httplib::Request& request, httplib::Response& response) {
               putInput(request, response);
             }));
  server.Patch("/api/inputs", guarded([this](const httplib::Request& request, httplib::Response& response) {
                 patchInputs(request, response);
               }));
  server.Post("/api/load", guarded([this](const httplib::Request& request, httplib::Response& response) {
                loadComposition(request, response);
              }));
  server.Post("/api/stop", [this](const httplib::Request&, httplib::Response& response) {
    playout_.stop();
    response.set_content("{}", jsonType);
  });
  server.Get("/api/events",
             [this](const httplib::Request&, httplib::Response& response) { streamEvents(response); });
  server.Get("/api/snapshot.png",
             [this](const httplib::Request&, httplib::Response& response) { sendSnapshot(response); });
  if (!settings_.pageFolder.empty()) {
    server.set_mount_point("/", settings_.pageFolder.string(), {{"Cache-Control", "no-cache"}});
  }
}

void ControlServer::putInput(const httplib::Request& request, httplib::Response& response) {
  const std::string name = request.matches[1];
  const Value value = PublishedInputJson::decode(name, parseBody(request), playout_.state().inputs);
  if (const std::string why = playout_.setInputs({{name, value}}); !why.empty()) {
    throw ControlRequestError(409, why);
  }
  response.set_content("{}", jsonType);
}

void ControlServer::patchInputs(const httplib::Request& request, httplib::Response& response) {
  const PublishedInputJson::Changes changes =
      PublishedInputJson::decodeAll(parseBody(request), playout_.state().inputs);
  if (const std::string why = playout_.setInputs(changes); !why.empty()) {
    throw ControlRequestError(409, why);
  }
  response.set_content("{}", jsonType);
}

void ControlServer::loadComposition(const httplib::Request& request, httplib::Response& response) {
  const PropertyList body = parseBody(request);
  if (!body.is_object() || !body.contains("path") || !body["path"].is_string()) {
    throw ControlRequestError(400, R"(the request must be {"path": "file.qvc"})");
  }
  const std::filesystem::path path = loadFolders_.resolve(body["path"].get<std::string>());
  if (const std::string why = playout_.load(path.string()); !why.empty()) {
    throw ControlRequestError(422, why);
  }
  response.set_content(PlayoutStateJson::text({{"path", path.string()}}), jsonType);
}

void ControlServer::streamEvents(httplib::Response& response) {
  if (++eventStreams_ > maximumEventStreams) {
    --eventStreams_;
    answerError(response, 503, "too many event streams are open");
    return;
  }
  response.set_header("Cache-Control", "no-cache");
  // A stream of unknown length is written as it comes, never held back for compression.
  // The first message is the state as it is; then one for each frame shown, or for the newest when the
  // client reads more slowly than frames come.
  auto seen = std::make_shared<std::optional<std::uint64_t>>();
  response.set_content_provider(
      "text/event-stream",
      [this, seen](std::size_t, httplib::DataSink& sink) {
        const std::uint64_t shown =
            seen->has_value() ? frames_->waitBeyond(**seen, keepAliveInterval) : frames_->count();
        if (frames_->closed()) {
          return false;
        }
        std::string message = ": waiting\n\n";
        if (!seen->has_value() || shown > **seen) {
          *seen = shown;
          message =
              "event: state\ndata: " + PlayoutStateJson::text(PlayoutStateJson::encode(playout_.state())) +
              "\n\n";
        }
        return sink.write(message.data(), message.size());
      },
      [this](bool) { --eventStreams_; });
}

void ControlServer::sendSnapshot(httplib::Response& response) {
  const std::shared_ptr<const std::string> png = snapshots_.png();
  if (png->empty()) {
    answerError(response, 503, "no frame has been shown yet");
    return;
  }
  response.set_header("Cache-Control", "no-store");
  response.set_content(*png, "image/png");
}

}  // namespace qva
