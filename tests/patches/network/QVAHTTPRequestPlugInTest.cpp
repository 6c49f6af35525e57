#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include "foundation/dispatch/TaskQueue.h"
#include "framework/Structure.h"
#include "patches/network/QVAHTTPRequestPlugIn.h"
#include "support/DriveScript.h"
#include "support/LoopbackHTTPServer.h"
#include "support/PatchExecution.h"

namespace qva {
namespace {

using namespace std::chrono_literals;
using Connection = LoopbackHTTPServer::Connection;
using ServedRequest = LoopbackHTTPServer::Request;

class HTTPRequestPlugInTest : public ::testing::Test {
 protected:
  HTTPRequestPlugInTest() : context_(queue_) {
    LoopbackHTTPServer::bypassProxiesForLoopback();
    patch_->setHostLog([this](const std::string& line) { hostLog_.push_back(line); });
    EXPECT_TRUE(patch_->startExecution(context_));
    patch_->enableExecution(context_);
  }
  ~HTTPRequestPlugInTest() override {
    release_ = true;
    patch_->disableExecution(context_);
    patch_->stopExecution(context_);
  }

  // Sets inputs, then executes when an input changed or the patch asks to run, as a host does with an
  // idle-mode patch; answers whether it ran.
  bool frame(std::initializer_list<std::pair<const char*, Value>> inputs = {}) {
    for (const auto& [key, value] : inputs) {
      patch_->setInputValue(key, value);
    }
    patch_->updateInputChangeFlags();
    const bool due = patch_->executionTimeForContext(context_, 1, Arguments()) == 1;
    if (!due && !patch_->anyInputChanged()) {
      return false;
    }
    executeOnce(*patch_, context_, 1);
    return true;
  }
  // Pumps the host queue until the patch asks to run, then runs it; false when it never asked.
  bool frameAfterDelivery(std::chrono::milliseconds limit = 10000ms) {
    queue_.pumpUntil(limit, [this] { return patch_->shouldRender(); });
    return frame();
  }
  // A frame with the inputs, then the frame the response it sends asks for; false when none does.
  bool exchange(std::initializer_list<std::pair<const char*, Value>> inputs,
                std::chrono::milliseconds limit = 10000ms) {
    frame(inputs);
    return frameAfterDelivery(limit);
  }
  const Value& output(const std::string& key) const { return patch_->findOutputPort(key)->value; }

  TaskQueue queue_;
  ExecutionContext context_;
  std::unique_ptr<QVAHTTPRequestPlugIn> patch_ = std::make_unique<QVAHTTPRequestPlugIn>();
  std::vector<std::string> hostLog_;
  std::atomic<bool> release_{false};
  LoopbackHTTPServer server_{[this](const ServedRequest& served, Connection& connection) {
    if (served.target == "/slow") {
      LoopbackHTTPServer::holdBack(5000ms, release_);
      connection.write(LoopbackHTTPServer::response(200, "slow"));
    } else if (served.target == "/chunked") {
      connection.write(
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nConnection: close\r\n\r\n"
          "4\r\nbody\r\n0\r\n\r\n");
    } else if (served.target == "/missing") {
      connection.write(LoopbackHTTPServer::response(404, "gone"));
    } else {
      connection.write(LoopbackHTTPServer::response(
          200, "<rss>é</rss>",
          "Content-Type: text/xml; charset=utf-8\r\nX-Served-For: " + served.method + "\r\n"));
    }
  }};
};

TEST_F(HTTPRequestPlugInTest, SendsWithTheUsersHeadersAndShowsTheResponse) {
  ASSERT_TRUE(frame(
      {{"inputURL", Value(server_.url("/feed"))},
       {"inputHeaderFields", Value("Accept: text/xml\nX-Token:\nbad line\r\n X-A : 1 \n\nX-Empty: \t")}}));
  EXPECT_FALSE(output("outputFinished").booleanValue());
  EXPECT_FALSE(frame());  // nothing to do until the response arrives
  ASSERT_TRUE(frameAfterDelivery());
  EXPECT_TRUE(output("outputFinished").booleanValue());
  EXPECT_FALSE(output("outputError").booleanValue());
  EXPECT_EQ(output("outputErrorDescription").stringValue(), "");
  EXPECT_EQ(output("outputStatusCode").indexValue(), 200u);
  EXPECT_EQ(output("outputStatusString").stringValue(), "OK");
  EXPECT_EQ(output("outputContentLength").indexValue(), 13u);
  EXPECT_EQ(output("outputContent").stringValue(), "<rss>é</rss>");
  const StructureRef headers = output("outputHeaderFields").structureValue();
  ASSERT_NE(headers, nullptr);
  EXPECT_EQ(headers->find("X-Served-For")->stringValue(), "GET");
  EXPECT_EQ(headers->find("Content-Length")->stringValue(), "13");
  EXPECT_FALSE(frame());

  const auto sent = server_.requests().at(0);
  EXPECT_EQ(sent.header("Accept"), "text/xml");
  EXPECT_EQ(sent.header("X-A"), "1");
  EXPECT_FALSE(sent.header("X-Token"));
  EXPECT_FALSE(sent.header("X-Empty"));
  EXPECT_EQ(hostLog_, (std::vector<std::string>{"Invalid header field line ignored: X-Token:",
                                                "Invalid header field line ignored: bad line"}));
}

TEST_F(HTTPRequestPlugInTest, OnlyAPostCarriesTheContent) {
  ASSERT_TRUE(exchange({{"inputURL", Value(server_.url("/post"))},
                        {"inputMethod", Value(1u)},
                        {"inputContent", Value("a=1")}}));
  ASSERT_TRUE(exchange({{"inputMethod", Value(2u)}}));
  ASSERT_TRUE(exchange({{"inputMethod", Value(1u)}, {"inputContent", Value("")}}));
  ASSERT_TRUE(exchange({{"inputMethod", Value(7u)}}));

  const auto sent = server_.requests();
  ASSERT_EQ(sent.size(), 4u);
  EXPECT_EQ(sent[0].method, "POST");
  EXPECT_EQ(sent[0].body, "a=1");
  EXPECT_EQ(sent[0].header("Content-Type"), "text/plain; charset=\"utf-8\"");
  EXPECT_EQ(sent[1].method, "PUT");
  EXPECT_EQ(sent[1].body, "");
  EXPECT_EQ(sent[2].method, "POST");
  EXPECT_EQ(sent[2].body, "");
  EXPECT_FALSE(sent[2].header("Content-Type"));
  EXPECT_EQ(sent[3].method, "GET");
}

TEST_F(HTTPRequestPlugInTest, ErrorStatusesFinishAndChunkedBodiesShowNoContent) {
  ASSERT_TRUE(exchange({{"inputURL", Value(server_.url("/missing"))}}));
  EXPECT_TRUE(output("outputFinished").booleanValue());
  EXPECT_FALSE(output("outputError").booleanValue());
  EXPECT_EQ(output("outputStatusCode").indexValue(), 404u);
  EXPECT_EQ(output("outputStatusString").stringValue(), "Not Found");
  EXPECT_EQ(output("outputContent").stringValue(), "gone");

  ASSERT_TRUE(exchange({{"inputURL", Value(server_.url("/chunked"))}}));
  EXPECT_EQ(output("outputStatusCode").indexValue(), 200u);
  EXPECT_EQ(output("outputContentLength").indexValue(), 0u);
  EXPECT_EQ(output("outputContent").stringValue(), "");
}

TEST_F(HTTPRequestPlugInTest, TransportFailuresSetTheErrorOutputsAndAnEmptyURLClearsThem) {
  const std::string unreachable = LoopbackHTTPServer::closedURL("/");
  ASSERT_TRUE(exchange({{"inputURL", Value(unreachable)}}));
  EXPECT_TRUE(output("outputError").booleanValue());
  EXPECT_NE(output("outputErrorDescription").stringValue().find("Could not connect"), std::string::npos);
  EXPECT_FALSE(output("outputFinished").booleanValue());
  EXPECT_EQ(output("outputStatusCode").indexValue(), 0u);
  EXPECT_TRUE(output("outputContent").isNone());
  ASSERT_EQ(hostLog_.size(), 1u);
  EXPECT_EQ(hostLog_[0].rfind("Error loading URL: " + unreachable + "\n", 0), 0u);

  ASSERT_TRUE(exchange({{"inputURL", Value(server_.url("/slow"))}, {"inputTimeout", Value(0.2)}}, 4000ms));
  EXPECT_NE(output("outputErrorDescription").stringValue().find("timed out"), std::string::npos);

  frame({{"inputURL", Value("")}});
  EXPECT_FALSE(output("outputError").booleanValue());
  EXPECT_TRUE(output("outputErrorDescription").isNone());
  EXPECT_FALSE(output("outputFinished").booleanValue());
}

TEST_F(HTTPRequestPlugInTest, UpdateSendsAgainOnlyWhenItRises) {
  ASSERT_TRUE(exchange({{"inputURL", Value(server_.url("/feed"))}}));
  ASSERT_TRUE(exchange({{"inputUpdate", Value(true)}}));
  EXPECT_FALSE(frame({{"inputUpdate", Value(true)}}));
  EXPECT_TRUE(frame({{"inputUpdate", Value(false)}}));  // a change, but no send
  queue_.pumpFor(100ms);
  EXPECT_FALSE(patch_->shouldRender());
  ASSERT_TRUE(exchange({{"inputUpdate", Value(true)}}));
  EXPECT_EQ(server_.requests().size(), 3u);
}

TEST_F(HTTPRequestPlugInTest, ANewSendOrAStopCancelsTheRequestInFlight) {
  frame({{"inputURL", Value(server_.url("/slow"))}});
  while (server_.requests().empty()) {
    queue_.pumpFor(5ms);
  }
  ASSERT_TRUE(exchange({{"inputURL", Value(server_.url("/feed"))}}));
  EXPECT_EQ(output("outputContent").stringValue(), "<rss>é</rss>");
  release_ = true;
  queue_.pumpFor(200ms);
  EXPECT_FALSE(patch_->shouldRender());
  EXPECT_FALSE(frame());
  EXPECT_EQ(output("outputContent").stringValue(), "<rss>é</rss>");

  release_ = false;
  frame({{"inputURL", Value(server_.url("/slow"))}});
  patch_->stopExecution(context_);
  release_ = true;
  queue_.pumpFor(200ms);
  EXPECT_FALSE(patch_->shouldRender());
  EXPECT_FALSE(patch_->finishedLoading());
}

TEST_F(HTTPRequestPlugInTest, RunsThroughTheDriverWithTheBundle) {
  const auto lines = drivePatch("QVAHTTPRequestPlugIn", PropertyList::parse(R"([
      {"time": 0, "inputs": {"inputURL": ")" + server_.url("/feed") + R"("}},
      {"op": "wait", "seconds": 1}, {"time": 1}, {"time": 2}])"));
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0]["outputs"]["outputFinished"], false);
  EXPECT_EQ(lines[2]["executed"], true);
  EXPECT_EQ(lines[2]["outputs"]["outputStatusCode"], 200);
  EXPECT_EQ(lines[2]["outputs"]["outputContent"], "<rss>é</rss>");
  EXPECT_EQ(lines[3]["executed"], false);
}

}  // namespace
}  // namespace qva
