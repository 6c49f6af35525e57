#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <lo/lo.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <thread>

#include "framework/ProcessLog.h"
#include "host/control/FakePlayout.h"
#include "host/control/OscReceiver.h"

namespace qva {
namespace {

using namespace std::chrono_literals;

class OscReceiverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    previousSink_ = ProcessLog::setSink([this](const std::string& line) {
      std::lock_guard lock(logMutex_);
      log_.push_back(line);
    });
    ASSERT_EQ(receiver_.start("127.0.0.1", 0), "");
    address_ = lo_address_new("127.0.0.1", std::to_string(receiver_.port()).c_str());
  }
  void TearDown() override {
    receiver_.stop();
    lo_address_free(address_);
    ProcessLog::setSink(previousSink_);
  }

  // Waits until the playout has taken that many batches of changes; the batches then.
  std::vector<std::vector<std::pair<std::string, Value>>> waitForBatches(std::size_t count) {
    for (auto deadline = std::chrono::steady_clock::now() + 5s;
         playout_.batches().size() < count && std::chrono::steady_clock::now() < deadline;) {
      std::this_thread::sleep_for(2ms);
    }
    return playout_.batches();
  }

  // Sends a valid change after messages expected to be refused, so that they have surely been read
  // when it arrives.
  std::vector<std::vector<std::pair<std::string, Value>>> batchesAfterMarker(std::size_t before) {
    lo_send(address_, "/qva/input/name", "s", "marker");
    const auto batches = waitForBatches(before + 1);
    EXPECT_EQ(batches.size(), before + 1);
    EXPECT_EQ(batches.back()[0].second, Value("marker"));
    return batches;
  }

  std::vector<std::string> log() {
    std::lock_guard lock(logMutex_);
    return log_;
  }

  FakePlayout playout_;
  OscReceiver receiver_{playout_};
  lo_address address_ = nullptr;
  ProcessLog::Sink previousSink_;
  std::mutex logMutex_;
  std::vector<std::string> log_;
};

TEST_F(OscReceiverTest, MessagesSetInputsAsTheirTypesTakeThem) {
  lo_send(address_, "/qva/input/name", "s", "Ada Lovelace");
  lo_send(address_, "/qva/input/score", "i", 12);
  lo_send(address_, "/qva/input/level", "f", 0.75f);
  lo_send(address_, "/qva/input/takeOff", "T");
  lo_send(address_, "/qva/input/takeOff", "i", 0);
  lo_send(address_, "/qva/input/tint", "ffff", 1.0f, 0.5f, 0.0f, 1.0f);
  lo_send(address_, "/qva/input/tint", "fff", 0.0f, 0.0f, 1.0f);
  lo_send(address_, "/qva/input/level", "d", 0.125);
  const auto batches = waitForBatches(8);
  ASSERT_EQ(batches.size(), 8u);
  EXPECT_EQ(batches[0][0], std::make_pair(std::string("name"), Value("Ada Lovelace")));
  EXPECT_EQ(batches[1][0].second, Value(std::uint32_t{12}));
  EXPECT_EQ(batches[2][0].second, Value(0.75));
  EXPECT_EQ(batches[3][0].second, Value(true));
  EXPECT_EQ(batches[4][0].second, Value(false));
  EXPECT_EQ(batches[5][0].second, Value(Color{1, 0.5, 0, 1}));
  EXPECT_EQ(batches[6][0].second, Value(Color{0, 0, 1, 1}));
  EXPECT_EQ(batches[7][0].second, Value(0.125));
}

TEST_F(OscReceiverTest, BundlesApplyEachMessage) {
  lo_bundle bundle = lo_bundle_new(LO_TT_IMMEDIATE);
  lo_message name = lo_message_new();
  lo_message_add_string(name, "Grace Hopper");
  lo_message score = lo_message_new();
  lo_message_add_int32(score, 5);
  lo_bundle_add_message(bundle, "/qva/input/name", name);
  lo_bundle_add_message(bundle, "/qva/input/score", score);
  lo_send_bundle(address_, bundle);
  lo_bundle_free_recursive(bundle);
  const auto batches = waitForBatches(2);
  ASSERT_EQ(batches.size(), 2u);
  EXPECT_EQ(batches[0][0].second, Value("Grace Hopper"));
  EXPECT_EQ(batches[1][0].second, Value(std::uint32_t{5}));
}

TEST_F(OscReceiverTest, MessagesThatCannotApplyChangeNothingAndAreLogged) {
  lo_send(address_, "/qva/input/nobody", "i", 1);
  lo_send(address_, "/qva/input/score", "s", "many");
  lo_send(address_, "/qva/input/score", "f", 2.5f);
  lo_send(address_, "/qva/input/name", "");
  lo_send(address_, "/qva/input/name", "ss", "two", "strings");
  lo_send(address_, "/qva/input/tint", "fsf", 1.0f, "x", 0.0f);
  lo_send(address_, "/qva/input/", "i", 1);
  lo_send(address_, "/other/name", "s", "Mallory");
  // A datagram that is no OSC at all, and a bundle whose element claims more bytes than it has.
  const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in target{};
  target.sin_family = AF_INET;
  target.sin_port = htons(static_cast<std::uint16_t>(receiver_.port()));
  target.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  for (const std::string& datagram : {std::string("\xff\x00garbage", 9),
                                      std::string("#bundle\0\0\0\0\0\0\0\0\1\x7f\xff\xff\xff/qva", 28)}) {
    ::sendto(socket, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&target),
             sizeof target);
  }
  ::close(socket);
  batchesAfterMarker(0);
  EXPECT_GE(log().size(), 8u);
  bool namesUnknown = false;
  for (const std::string& line : log()) {
    namesUnknown = namesUnknown || line.find("nobody") != std::string::npos;
  }
  EXPECT_TRUE(namesUnknown);
}

TEST_F(OscReceiverTest, ChangesThePlayoutRefusesAreLogged) {
  playout_.refuseChanges("the composition is being replaced");
  lo_send(address_, "/qva/input/name", "s", "Ada");
  for (auto deadline = std::chrono::steady_clock::now() + 5s;
       log().empty() && std::chrono::steady_clock::now() < deadline;) {
    std::this_thread::sleep_for(2ms);
  }
  ASSERT_EQ(log().size(), 1u);
  EXPECT_NE(log()[0].find("being replaced"), std::string::npos);
}

TEST_F(OscReceiverTest, APortInUseIsReported) {
  OscReceiver second(playout_);
  const std::string why = second.start("127.0.0.1", receiver_.port());
  EXPECT_NE(why.find(std::to_string(receiver_.port())), std::string::npos) << why;
  EXPECT_NE(OscReceiver(playout_).start("not-an-address.invalid", 0), "");
}

}  // namespace
}  // namespace qva
