#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <mutex>
#include <thread>

#include "RecordingReader.h"
#include "foundation/dispatch/TaskQueue.h"
#include "foundation/xml/QVAXMLPlugInDocument.h"
#include "framework/ProcessLog.h"
#include "support/LoopbackHTTPServer.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

using namespace std::chrono_literals;
using Connection = LoopbackHTTPServer::Connection;
using ServedRequest = LoopbackHTTPServer::Request;

constexpr std::string_view kFeed =
    "<?xml version=\"1.0\"?><rss version=\"2.0\"><channel><title>Desk</title>"
    "<item><title>First story</title></item></channel></rss>";

class XmlDownloadTest : public ::testing::Test {
 protected:
  XmlDownloadTest() {
    LoopbackHTTPServer::bypassProxiesForLoopback();
    previousSink_ = ProcessLog::setSink([this](const std::string& line) {
      std::lock_guard lock(logMutex_);
      log_.push_back(line);
    });
  }
  ~XmlDownloadTest() override { ProcessLog::setSink(previousSink_); }

  // Pumps the host queue until the reader has been told, for at most the limit.
  bool delivered(const RecordingReader& reader, std::chrono::milliseconds limit = 5000ms) {
    return queue_.pumpUntil(limit, [&] { return reader.deliveries > 0; });
  }
  // Adds the reader and waits until it has been told.
  bool load(QVAXMLPlugInDocument& document, RecordingReader& reader) {
    document.addUser(&reader);
    const bool told = delivered(reader);
    document.removeUser(&reader);
    return told;
  }
  // The log lines written so far that mention the text.
  std::vector<std::string> logLinesWith(const std::string& text) {
    std::lock_guard lock(logMutex_);
    std::vector<std::string> found;
    std::copy_if(log_.begin(), log_.end(), std::back_inserter(found),
                 [&](const std::string& line) { return line.find(text) != std::string::npos; });
    return found;
  }

  TaskQueue queue_;
  std::atomic<bool> release_{false};

 private:
  ProcessLog::Sink previousSink_;
  std::mutex logMutex_;
  std::vector<std::string> log_;
};

TEST_F(XmlDownloadTest, AFeedServedOverHTTPIsDeliveredOnTheHostQueue) {
  LoopbackHTTPServer server([](const ServedRequest&, Connection& connection) {
    connection.write(LoopbackHTTPServer::response(200, kFeed, "Content-Type: application/rss+xml\r\n"));
  });
  for (const std::string& url :
       {server.url("/feed.xml"), "feed://127.0.0.1:" + std::to_string(server.port()) + "/feed.xml"}) {
    SCOPED_TRACE(url);
    const auto document = QVAXMLPlugInDocument::documentWithURL(url, queue_);
    RecordingReader reader;
    document->addUser(&reader);
    // The loader waits for the host queue: however long it has had, nobody is told before a pump.
    for (int wait = 0; wait < 200 && document->state() == QVAXMLPlugInDocument::Loading; ++wait) {
      std::this_thread::sleep_for(10ms);
    }
    EXPECT_EQ(reader.deliveries, 0);
    ASSERT_TRUE(delivered(reader));
    document->removeUser(&reader);
    EXPECT_EQ(server.requests().back().target, "/feed.xml");
    EXPECT_EQ(reader.thread, std::this_thread::get_id());
    EXPECT_EQ(document->state(), QVAXMLPlugInDocument::Loaded);
    ASSERT_NE(reader.xml, nullptr);
    EXPECT_EQ(XmlParser::nodeText(xmlDocGetRootElement(reader.xml.get())), "DeskFirst story");
  }
}

TEST_F(XmlDownloadTest, ASlowOrEndlessFeedFailsAtItsTimeOutWhileTheHostRuns) {
  LoopbackHTTPServer server([this](const ServedRequest& request, Connection& connection) {
    if (request.target == "/endless") {
      // A feed that keeps coming, a few bytes at a time, and never closes.
      connection.write(
          "HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nConnection: close\r\n\r\n<rss><channel>");
      while (!release_ && connection.write("<item><title>more</title></item>")) {
        std::this_thread::sleep_for(20ms);
      }
      return;
    }
    // Nothing at all until released.
    while (!release_) {
      std::this_thread::sleep_for(5ms);
    }
  });
  for (const std::string path : {"/silent", "/endless"}) {
    SCOPED_TRACE(path);
    const auto document = QVAXMLPlugInDocument::documentWithURL(server.url(path), queue_, 300ms);
    RecordingReader reader;
    document->addUser(&reader);
    // The host thread is back at once and keeps pumping while the download hangs.
    EXPECT_EQ(document->state(), QVAXMLPlugInDocument::Loading);
    queue_.pumpFor(50ms);
    EXPECT_EQ(reader.deliveries, 0);

    ASSERT_TRUE(delivered(reader)) << "the server never lets go";
    document->removeUser(&reader);
    EXPECT_EQ(reader.xml, nullptr);
    EXPECT_EQ(document->state(), QVAXMLPlugInDocument::Failed);
    const std::vector<std::string> lines = logLinesWith(server.url(path));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines.front().find("timed out"), std::string::npos) << lines.front();
  }
  release_ = true;
}

TEST_F(XmlDownloadTest, AnUnreachableHostFailsWithALogLine) {
  const std::string url = LoopbackHTTPServer::closedURL("/feed.xml");
  const auto document = QVAXMLPlugInDocument::documentWithURL(url, queue_);
  RecordingReader reader;
  ASSERT_TRUE(load(*document, reader));
  EXPECT_EQ(reader.xml, nullptr);
  EXPECT_EQ(document->state(), QVAXMLPlugInDocument::Failed);
  const std::vector<std::string> lines = logLinesWith("error while downloading XML from URL " + url);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines.front().find("connect"), std::string::npos) << lines.front();
}

TEST_F(XmlDownloadTest, RedirectsAreFollowedOnlyToHTTP) {
  TemporaryFolder folder("xml-download");
  std::ofstream(folder / "feed.xml") << kFeed;
  const std::string fileURL = "file://" + (folder / "feed.xml").string();
  LoopbackHTTPServer server([&](const ServedRequest& request, Connection& connection) {
    if (request.target == "/moved") {
      connection.write(LoopbackHTTPServer::response(302, "", "Location: /feed.xml\r\n"));
    } else if (request.target == "/to-file") {
      connection.write(LoopbackHTTPServer::response(302, "", "Location: " + fileURL + "\r\n"));
    } else {
      connection.write(LoopbackHTTPServer::response(200, kFeed));
    }
  });

  RecordingReader moved;
  ASSERT_TRUE(load(*QVAXMLPlugInDocument::documentWithURL(server.url("/moved"), queue_), moved));
  EXPECT_NE(moved.xml, nullptr);

  RecordingReader toFile;
  const auto document = QVAXMLPlugInDocument::documentWithURL(server.url("/to-file"), queue_);
  ASSERT_TRUE(load(*document, toFile));
  EXPECT_EQ(toFile.xml, nullptr) << "the file behind the redirect must not be read";
  EXPECT_EQ(document->state(), QVAXMLPlugInDocument::Failed);
  EXPECT_EQ(logLinesWith(server.url("/to-file")).size(), 1u);
}

}  // namespace
}  // namespace qva
