#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "foundation/image/ImageDecoder.h"
#include "framework/PropertyList.h"
#include "host/control/ControlServer.h"
#include "host/control/FakePlayout.h"
#include "support/ControlEventStream.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

using namespace std::chrono_literals;

class ControlServerTest : public ::testing::Test {
 protected:
  ControlServerTest() : folder_("control-server") {
    std::filesystem::create_directories(folder_ / "shows");
    std::filesystem::create_directories(folder_ / "shows-private");
    std::filesystem::create_directories(folder_ / "page");
    std::ofstream(folder_ / "shows" / "news.qvc") << "{}";
    std::ofstream(folder_ / "shows-private" / "secret.qvc") << "{}";
    std::ofstream(folder_ / "secret.qvc") << "{}";
    std::ofstream(folder_ / "page" / "index.html") << "<html><body>control</body></html>";
    settings_.loadFolders = {folder_ / "shows"};
    settings_.pageFolder = folder_ / "page";
  }

  void start() {
    server_ = std::make_unique<ControlServer>(playout_, settings_);
    ASSERT_EQ(server_->start(), "");
    client_ = std::make_unique<httplib::Client>("127.0.0.1", server_->port());
    client_->set_read_timeout(5, 0);
  }

  static PropertyList json(const httplib::Result& result) { return parsePropertyList(result->body); }

  // Sends a request and expects the status; answers the JSON error message, if any.
  std::string expectStatus(const httplib::Result& result, int status) {
    EXPECT_TRUE(result) << "no answer";
    if (!result) {
      return {};
    }
    EXPECT_EQ(result->status, status) << result->body;
    const PropertyList body = parsePropertyList(result->body, false);
    return body.is_object() && body.contains("error") ? body["error"].get<std::string>() : std::string();
  }

  httplib::Result put(const std::string& name, const std::string& body) {
    return client_->Put(("/api/inputs/" + name).c_str(), body, "application/json");
  }

  httplib::Result patchInputs(const std::string& body) {
    return client_->Patch("/api/inputs", body, "application/json");
  }

  httplib::Result load(const std::string& body) {
    return client_->Post("/api/load", body, "application/json");
  }

  TemporaryFolder folder_;
  FakePlayout playout_;
  ControlSettings settings_;
  std::unique_ptr<ControlServer> server_;
  std::unique_ptr<httplib::Client> client_;
};

TEST_F(ControlServerTest, StateNamesTheInputsWithTypesValuesRangesAndMenus) {
  start();
  playout_.showFrame();
  const httplib::Result result = client_->Get("/api/state");
  ASSERT_TRUE(result);
  EXPECT_EQ(result->get_header_value("Content-Type"), "application/json");
  const PropertyList state = json(result);
  EXPECT_EQ(state["composition"], "/shows/lower-third.qvc");
  EXPECT_EQ(state["frame"], 1);
  EXPECT_EQ(state["frameRate"], 50.0);
  EXPECT_EQ(state["pacing"]["framesShown"], 1);
  ASSERT_EQ(state["inputs"].size(), 7u);
  EXPECT_EQ(state["inputs"][0],
            PropertyList({{"name", "name"}, {"type", "String"}, {"value", "Eleanor Vance"}}));
  EXPECT_EQ(state["inputs"][1]["minimum"], 0.0);
  EXPECT_EQ(state["inputs"][1]["maximum"], 99.0);
  EXPECT_EQ(state["inputs"][3]["menuItems"], PropertyList({"Red", "Blue"}));
  EXPECT_EQ(state["inputs"][5]["value"], PropertyList({1.0, 1.0, 1.0, 1.0}));
  EXPECT_TRUE(state["inputs"][6]["value"].is_null());
  EXPECT_EQ(state["outputs"], PropertyList::parse(R"([{"name": "waiting", "value": true}])"));
}

TEST_F(ControlServerTest, ValuesAreQueuedAsTheInputsTypes) {
  start();
  expectStatus(put("name", R"("Ada Lovelace")"), 200);
  expectStatus(put("score", "7"), 200);
  expectStatus(put("level", "0.25"), 200);
  expectStatus(put("takeOff", "1"), 200);
  expectStatus(put("tint", "[1, 0, 0]"), 200);
  const auto batches = playout_.batches();
  ASSERT_EQ(batches.size(), 5u);
  EXPECT_EQ(batches[0][0], std::make_pair(std::string("name"), Value("Ada Lovelace")));
  EXPECT_EQ(batches[1][0].second, Value(std::uint32_t{7}));
  EXPECT_EQ(batches[2][0].second, Value(0.25));
  EXPECT_EQ(batches[3][0].second, Value(true));
  EXPECT_EQ(batches[4][0].second, Value(Color{1, 0, 0, 1}));
  // Nothing shows before the frame boundary; then all of it does.
  EXPECT_EQ(json(client_->Get("/api/state"))["inputs"][0]["value"], "Eleanor Vance");
  playout_.showFrame();
  EXPECT_EQ(json(client_->Get("/api/state"))["inputs"][0]["value"], "Ada Lovelace");
}

TEST_F(ControlServerTest, SeveralChangesGoTogetherOrNotAtAll) {
  start();
  expectStatus(patchInputs(R"({"name": "Grace Hopper", "score": 3})"), 200);
  ASSERT_EQ(playout_.batches().size(), 1u);
  EXPECT_EQ(playout_.batches()[0].size(), 2u);
  // One bad member refuses the whole request.
  EXPECT_NE(expectStatus(patchInputs(R"({"name": "X", "score": "many"})"), 400).find("score"),
            std::string::npos);
  expectStatus(patchInputs(R"({"name": "X", "nobody": 1})"), 404);
  expectStatus(patchInputs(R"(["name", "X"])"), 400);
  EXPECT_EQ(playout_.batches().size(), 1u);
}

TEST_F(ControlServerTest, WrongKindsUnknownNamesAndBadJsonChangeNothing) {
  start();
  EXPECT_NE(expectStatus(put("score", R"("seven")"), 400).find("Index"), std::string::npos);
  expectStatus(put("score", "2.5"), 400);
  expectStatus(put("score", "-1"), 400);
  expectStatus(put("level", R"("high")"), 400);
  expectStatus(put("takeOff", R"("yes")"), 400);
  expectStatus(put("name", R"({"first": "Ada"})"), 400);
  expectStatus(put("tint", R"([1, "red", 0])"), 400);
  expectStatus(put("tint", "[1, 0]"), 400);
  expectStatus(put("picture", R"({"imageFile": "/etc/passwd"})"), 400);
  expectStatus(put("name", "null"), 400);
  EXPECT_NE(expectStatus(put("nobody", "1"), 404).find("nobody"), std::string::npos);
  EXPECT_NE(expectStatus(put("name", R"("unterminated)"), 400).find("JSON"), std::string::npos);
  expectStatus(put("name", ""), 400);
  expectStatus(patchInputs("{\"name\": "), 400);
  expectStatus(load("{"), 400);
  expectStatus(load(R"({"path": 7})"), 400);
  EXPECT_EQ(playout_.setInputsCalls(), 0);
  EXPECT_TRUE(playout_.loads().empty());
  playout_.showFrame();
  EXPECT_EQ(json(client_->Get("/api/state"))["inputs"][0]["value"], "Eleanor Vance");
}

TEST_F(ControlServerTest, ChangesThePlayoutRefusesAreReportedWithItsReason) {
  start();
  playout_.refuseChanges("the composition is being replaced");
  EXPECT_EQ(expectStatus(put("name", R"("Ada")"), 409), "the composition is being replaced");
}

TEST_F(ControlServerTest, BodiesOverTheCapAreRefusedUnread) {
  settings_.maximumBodyBytes = 1024;
  start();
  const std::string large = "\"" + std::string(4096, 'x') + "\"";
  expectStatus(put("name", large), 413);
  expectStatus(patchInputs("{\"name\": " + large + "}"), 413);
  EXPECT_EQ(playout_.setInputsCalls(), 0);
  // A body under the cap is still read.
  expectStatus(put("name", "\"" + std::string(900, 'x') + "\""), 200);
}

TEST_F(ControlServerTest, LoadsOnlyFilesInsideTheNamedFolders) {
  std::filesystem::create_symlink(folder_ / "secret.qvc", folder_ / "shows" / "link.qvc");
  std::filesystem::create_directory_symlink(folder_ / "shows-private", folder_ / "shows" / "private");
  start();
  const std::string news = std::filesystem::canonical(folder_ / "shows" / "news.qvc").string();
  EXPECT_EQ(json(load(R"({"path": "news.qvc"})"))["path"], news);
  expectStatus(load(PropertyList({{"path", news}}).dump()), 200);
  expectStatus(load(R"({"path": "../secret.qvc"})"), 403);
  expectStatus(load(R"({"path": "link.qvc"})"), 403);
  expectStatus(load(R"({"path": "private/secret.qvc"})"), 403);
  expectStatus(load(PropertyList({{"path", (folder_ / "shows-private" / "secret.qvc").string()}}).dump()),
               403);
  expectStatus(load(PropertyList({{"path", (folder_ / "shows" / ".." / "secret.qvc").string()}}).dump()),
               403);
  expectStatus(load(R"({"path": "missing.qvc"})"), 404);
  expectStatus(load(R"({"path": "."})"), 403);
  expectStatus(load(R"({"path": ""})"), 400);
  EXPECT_EQ(playout_.loads(), std::vector<std::string>({news, news}));
}

TEST_F(ControlServerTest, LoadingIsOffWithoutFolders) {
  settings_.loadFolders.clear();
  start();
  EXPECT_NE(expectStatus(load(R"({"path": "news.qvc"})"), 403).find("off"), std::string::npos);
  EXPECT_TRUE(playout_.loads().empty());
}

TEST_F(ControlServerTest, StopEndsThePlayout) {
  start();
  expectStatus(client_->Post("/api/stop"), 200);
  EXPECT_TRUE(playout_.stopped());
}

TEST_F(ControlServerTest, TokenIsNeededForEveryRequestWhenGiven) {
  settings_.token = "s3cret; with=odd chars";
  start();
  expectStatus(client_->Get("/api/state"), 401);
  expectStatus(client_->Get("/"), 401);
  expectStatus(client_->Get("/api/snapshot.png"), 401);
  expectStatus(client_->Get("/api/events"), 401);
  expectStatus(put("name", R"("Mallory")"), 401);
  expectStatus(client_->Post("/api/stop"), 401);
  expectStatus(client_->Get("/api/state", {{"Authorization", "Bearer s3cret"}}), 401);
  expectStatus(client_->Get("/api/state", {{"Authorization", "Bearer s3cret; with=odd charsX"}}), 401);
  expectStatus(client_->Get("/?token=wrong"), 401);
  EXPECT_EQ(playout_.setInputsCalls(), 0);
  EXPECT_FALSE(playout_.stopped());

  SCOPED_TRACE("signed in");
  expectStatus(client_->Get("/api/state", {{"Authorization", "Bearer s3cret; with=odd chars"}}), 200);
  // Signing in through the page's address sets the cookie the page's own requests then carry.
  const httplib::Result signIn = client_->Get("/?token=s3cret%3B%20with%3Dodd%20chars");
  expectStatus(signIn, 303);
  const std::string setCookie = signIn->get_header_value("Set-Cookie");
  EXPECT_NE(setCookie.find("HttpOnly"), std::string::npos);
  EXPECT_EQ(setCookie.find("s3cret"), std::string::npos) << "the cookie must not hold the token itself";
  const std::string cookie = setCookie.substr(0, setCookie.find(';'));
  const httplib::Headers withCookie = {{"Cookie", "theme=dark; " + cookie}};
  SCOPED_TRACE("cookie");
  expectStatus(client_->Get("/", withCookie), 200);
  expectStatus(client_->Put("/api/inputs/name", withCookie, R"("Ada")", "application/json"), 200);
  expectStatus(client_->Get("/api/state", {{"Cookie", std::string(ControlServer::tokenCookie) + "=s3cret"}}),
               401);
}

TEST_F(ControlServerTest, AnswersOnlyOnLoopbackUnlessToldOtherwise) {
  start();
  // Another address of this machine, if it has one, does not reach the server.
  ifaddrs* interfaces = nullptr;
  ASSERT_EQ(getifaddrs(&interfaces), 0);
  std::optional<sockaddr_in> external;
  for (ifaddrs* entry = interfaces; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET) {
      sockaddr_in address;
      std::memcpy(&address, entry->ifa_addr, sizeof address);
      if ((ntohl(address.sin_addr.s_addr) >> 24) != 127) {
        external = address;
      }
    }
  }
  freeifaddrs(interfaces);
  if (external) {
    external->sin_port = htons(static_cast<std::uint16_t>(server_->port()));
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_NE(::connect(socket, reinterpret_cast<const sockaddr*>(&*external), sizeof *external), 0);
    ::close(socket);
  }
  // A page elsewhere whose name points at 127.0.0.1 is not answered, nor is a foreign page's form.
  expectStatus(client_->Get("/api/state", {{"Host", "attacker.example:8080"}}), 403);
  const std::string ownHost = "127.0.0.1:" + std::to_string(server_->port());
  expectStatus(client_->Post("/api/stop", {{"Origin", "http://attacker.example"}}, "", "text/plain"), 403);
  EXPECT_FALSE(playout_.stopped());
  expectStatus(client_->Post("/api/stop", {{"Origin", "http://" + ownHost}}, "", "text/plain"), 200);
  EXPECT_TRUE(playout_.stopped());
}

TEST_F(ControlServerTest, AServerExposedOnPurposeAnswersToItsNetworkName) {
  settings_.bindAddress = "0.0.0.0";
  start();
  expectStatus(client_->Get("/api/state", {{"Host", "studio-playout.local:8080"}}), 200);
}

TEST_F(ControlServerTest, SnapshotIsAThumbnailOfTheLastFrame) {
  start();
  expectStatus(client_->Get("/api/snapshot.png"), 503);
  playout_.setFrame(1920, 1080, 0, 0, 200);
  const httplib::Result result = client_->Get("/api/snapshot.png");
  ASSERT_TRUE(result);
  ASSERT_EQ(result->status, 200);
  EXPECT_EQ(result->get_header_value("Content-Type"), "image/png");
  const ImageDecoder::Result decoded =
      ImageDecoder::decode(reinterpret_cast<const std::uint8_t*>(result->body.data()), result->body.size());
  ASSERT_TRUE(decoded.bitmap) << decoded.error;
  EXPECT_EQ(decoded.bitmap->width(), SnapshotCache::maximumWidth);
  EXPECT_EQ(decoded.bitmap->height(), SnapshotCache::maximumHeight);
  const std::uint8_t* centre = decoded.bitmap->row(135) + 240 * 4;
  EXPECT_EQ(centre[2], 200);
  EXPECT_EQ(centre[1], 0);
  // Clients asking often share one read-back.
  const int reads = playout_.framesRead();
  for (int request = 0; request < 5; ++request) {
    client_->Get("/api/snapshot.png");
  }
  EXPECT_LT(playout_.framesRead() - reads, 5);
}

TEST_F(ControlServerTest, ServesThePageButNothingOutsideItsFolder) {
  start();
  const httplib::Result page = client_->Get("/");
  ASSERT_TRUE(page);
  EXPECT_EQ(page->status, 200);
  EXPECT_NE(page->body.find("control"), std::string::npos);
  const httplib::Result outside = client_->Get("/../secret.qvc");
  ASSERT_TRUE(outside);
  EXPECT_NE(outside->status, 200);
  expectStatus(client_->Get("/api/nothing"), 404);
}

// Keeps the states the event stream carries.
class EventReader {
 public:
  explicit EventReader(int port, httplib::Headers headers = {})
      : stream_(
            port,
            [this](const PropertyList& state) {
              std::lock_guard lock(mutex_);
              states_.push_back(state);
              arrived_.notify_all();
            },
            std::move(headers)) {}

  // Waits for the count of events to reach n; the states so far.
  std::vector<PropertyList> waitFor(std::size_t count) {
    std::unique_lock lock(mutex_);
    arrived_.wait_for(lock, 5s, [&] { return states_.size() >= count; });
    return states_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<PropertyList> states_;
  // Last, so that it stops before what it writes to goes.
  ControlEventStream stream_;
};

TEST_F(ControlServerTest, EventsCarryTheStateOncePerFrameAsFramesAreShown) {
  start();
  // Compression would hold the events back; a browser always offers it.
  EventReader reader(server_->port(), {{"Accept-Encoding", "gzip, deflate, br"}});
  ASSERT_EQ(reader.waitFor(1).size(), 1u);
  expectStatus(put("name", R"("Ada")"), 200);
  playout_.showFrame();
  std::vector<PropertyList> states = reader.waitFor(2);
  ASSERT_EQ(states.size(), 2u);
  EXPECT_EQ(states[1]["frame"], 1);
  EXPECT_EQ(states[1]["inputs"][0]["value"], "Ada");
  // No frame, no event: the keep-alive comment carries no state.
  std::this_thread::sleep_for(1200ms);
  EXPECT_EQ(reader.waitFor(0).size(), 2u);
  playout_.showFrame();
  EXPECT_EQ(reader.waitFor(3).back()["frame"], 2);
}

TEST_F(ControlServerTest, EventStreamsAreLimitedAndStopDoesNotWaitForThem) {
  start();
  std::vector<std::unique_ptr<EventReader>> readers;
  for (int stream = 0; stream < ControlServer::maximumEventStreams; ++stream) {
    readers.push_back(std::make_unique<EventReader>(server_->port()));
    ASSERT_EQ(readers.back()->waitFor(1).size(), 1u);
  }
  expectStatus(client_->Get("/api/events"), 503);
  // The API still answers beside the open streams.
  expectStatus(client_->Get("/api/state"), 200);
  EXPECT_TRUE(playout_.observed());
  const auto before = std::chrono::steady_clock::now();
  server_->stop();
  EXPECT_LT(std::chrono::steady_clock::now() - before, 3s);
  EXPECT_FALSE(playout_.observed());
}

}  // namespace
}  // namespace qva
