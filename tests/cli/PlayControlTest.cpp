#include <gtest/gtest.h>
#include <httplib.h>
#include <lo/lo.h>

#include <chrono>
#include <functional>
#include <thread>

#include "foundation/image/ImageDecoder.h"
#include "framework/PropertyList.h"
#include "support/PlayingQva.h"

namespace qva {
namespace {

using namespace std::chrono_literals;

const std::string examples = std::string(QVA_SOURCE_DIR) + "/examples";

// A small canvas keeps the software renderer well ahead of the clock.
std::vector<std::string> lowerThird(std::vector<std::string> more = {}) {
  std::vector<std::string> arguments = {examples + "/lower-third.qvc", "--size", "480x270", "--control-allow",
                                        examples};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

class PlayControlTest : public ::testing::Test {
 protected:
  void play(const std::vector<std::string>& arguments, bool withOsc = false) {
    qva_ = std::make_unique<PlayingQva>(arguments, withOsc);
    if (!qva_->ready()) {
      GTEST_SKIP() << "qva play did not start (no OpenGL?): " << qva_->errors();
    }
    client_ = std::make_unique<httplib::Client>("127.0.0.1", qva_->controlPort());
    client_->set_read_timeout(10, 0);
    client_->set_default_headers(headers_);
  }

  PropertyList state() {
    const httplib::Result result = client_->Get("/api/state");
    return result && result->status == 200 ? parsePropertyList(result->body) : PropertyList();
  }

  // Polls the state until the test holds, at most a few seconds; the state then.
  PropertyList stateWhere(const std::function<bool(const PropertyList&)>& test) {
    PropertyList current;
    for (const auto deadline = std::chrono::steady_clock::now() + 10s;
         std::chrono::steady_clock::now() < deadline; std::this_thread::sleep_for(20ms)) {
      current = state();
      if (current.is_object() && test(current)) {
        break;
      }
    }
    return current;
  }

  static PropertyList named(const PropertyList& list, const std::string& name) {
    for (const PropertyList& entry : list) {
      if (entry["name"] == name) {
        return entry["value"];
      }
    }
    return {};
  }

  // Polls the state until the named entry of its inputs or outputs holds the value; the entry's value then.
  PropertyList namedOnceItIs(const std::string& list, const std::string& name, const PropertyList& value) {
    return named(
        stateWhere([&](const PropertyList& current) { return named(current[list], name) == value; })[list],
        name);
  }

  int put(const std::string& name, const std::string& json) {
    const httplib::Result result = client_->Put(("/api/inputs/" + name).c_str(), json, "application/json");
    return result ? result->status : 0;
  }

  // The thumbnail of a frame shown after every change made so far.
  std::optional<Bitmap> snapshotAfterChanges() {
    const long long frame = state()["frame"].get<long long>();
    stateWhere([&](const PropertyList& current) { return current["frame"].get<long long>() > frame + 1; });
    // Thumbnails are made a few times a second at most.
    std::this_thread::sleep_for(250ms);
    const httplib::Result result = client_->Get("/api/snapshot.png");
    if (!result || result->status != 200) {
      return std::nullopt;
    }
    return ImageDecoder::decode(reinterpret_cast<const std::uint8_t*>(result->body.data()),
                                result->body.size())
        .bitmap;
  }

  httplib::Headers headers_;
  std::unique_ptr<PlayingQva> qva_;
  std::unique_ptr<httplib::Client> client_;
};

bool samePixels(const Bitmap& first, const Bitmap& second) {
  if (first.width() != second.width() || first.height() != second.height()) {
    return false;
  }
  for (int y = 0; y < first.height(); ++y) {
    if (std::memcmp(first.row(y), second.row(y), static_cast<std::size_t>(first.width()) * 4) != 0) {
      return false;
    }
  }
  return true;
}

TEST_F(PlayControlTest, NamesAndTriggersChangeTheFramesShown) {
  play(lowerThird(), true);
  // The lower third slides in and holds at its stop frame until triggered.
  ASSERT_EQ(namedOnceItIs("outputs", "waiting", true), true);
  const std::optional<Bitmap> before = snapshotAfterChanges();
  ASSERT_TRUE(before);
  EXPECT_EQ(put("name", R"("Ada Lovelace")"), 200);
  EXPECT_EQ(namedOnceItIs("inputs", "name", "Ada Lovelace"), "Ada Lovelace");
  const std::optional<Bitmap> renamed = snapshotAfterChanges();
  ASSERT_TRUE(renamed);
  EXPECT_FALSE(samePixels(*before, *renamed));

  // OSC reaches the same inputs.
  lo_address address = lo_address_new("127.0.0.1", std::to_string(qva_->oscPort()).c_str());
  lo_send(address, "/qva/input/title", "s", "Mathematician");
  lo_address_free(address);
  EXPECT_EQ(namedOnceItIs("inputs", "title", "Mathematician"), "Mathematician");

  // A trigger press: true for a frame, then false; the composition leaves its stop frame.
  EXPECT_EQ(put("takeOff", "true"), 200);
  namedOnceItIs("inputs", "takeOff", true);
  EXPECT_EQ(put("takeOff", "false"), 200);
  EXPECT_EQ(namedOnceItIs("outputs", "waiting", false), false);
}

TEST_F(PlayControlTest, RefusesWhatItMustAndStopsWhenAsked) {
  headers_ = {{"Authorization", "Bearer stage-door"}};
  play(lowerThird({"--control-token", "stage-door"}));
  const PropertyList initial = stateWhere([](const PropertyList& current) { return current["frame"] > 0; });
  httplib::Client stranger("127.0.0.1", qva_->controlPort());
  EXPECT_EQ(stranger.Get("/api/state")->status, 401);
  EXPECT_EQ(stranger.Put("/api/inputs/name", R"("Mallory")", "application/json")->status, 401);
  EXPECT_EQ(put("nobody", "1"), 404);
  EXPECT_EQ(put("name", "{oops"), 400);
  EXPECT_EQ(put("name", "\"" + std::string(1 << 20, 'x') + "\""), 413);
  const auto load = [&](const std::string& path) {
    return client_->Post("/api/load", PropertyList({{"path", path}}).dump(), "application/json")->status;
  };
  EXPECT_EQ(load("../CMakeLists.txt"), 403);
  EXPECT_EQ(load("/etc/hostname"), 403);
  EXPECT_EQ(named(state()["inputs"], "name"), named(initial["inputs"], "name"));

  EXPECT_EQ(load("ticker.qvc"), 200);
  EXPECT_NE(stateWhere([](const PropertyList& current) {
              return current["composition"].get<std::string>().ends_with("ticker.qvc");
            })["composition"]
                .get<std::string>()
                .find("ticker.qvc"),
            std::string::npos);
  EXPECT_EQ(client_->Post("/api/stop")->status, 200);
  EXPECT_EQ(qva_->waitForExit(20), 0) << qva_->errors();
}

TEST_F(PlayControlTest, PortsThatCannotBeHadEndThePlayWithAMessage) {
  PlayingQva taken(lowerThird({"--control-bind", "192.0.2.1"}), false);
  EXPECT_FALSE(taken.ready());
  EXPECT_EQ(taken.waitForExit(20), 2);
  EXPECT_NE(taken.errors().find("192.0.2.1"), std::string::npos) << taken.errors();
}

}  // namespace
}  // namespace qva
