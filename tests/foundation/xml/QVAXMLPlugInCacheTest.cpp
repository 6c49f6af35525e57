#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "RecordingReader.h"
#include "foundation/dispatch/TaskQueue.h"
#include "foundation/xml/QVAXMLPlugInCache.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

using namespace std::chrono_literals;

class XmlCacheTest : public ::testing::Test {
 protected:
  XmlCacheTest() : folder_("xml-cache") {
    write("<rss><channel><title>One</title></channel></rss>");
    url_ = "file://" + (folder_ / "feed.xml").string();
  }
  ~XmlCacheTest() override {
    for (RecordingReader* reader : {&first_, &second_, &third_}) {
      cache().unregisterUser(reader, url_);
    }
  }

  static QVAXMLPlugInCache& cache() { return QVAXMLPlugInCache::sharedCache(); }
  // The file's clock ticks coarsely: a rewrite within one tick is given a later time, so that it reads as
  // the change it would be a moment later.
  void write(const std::string& text) {
    const std::filesystem::path path = folder_ / "feed.xml";
    std::error_code absent;
    const std::filesystem::file_time_type before = std::filesystem::last_write_time(path, absent);
    std::ofstream(path) << text;
    if (!absent && std::filesystem::last_write_time(path) <= before) {
      std::filesystem::last_write_time(path, before + 1s);
    }
  }
  // Pumps until the reader has had that many deliveries (or a while has passed).
  void waitFor(const RecordingReader& reader, int deliveries) {
    queue_.pumpUntil(5s, [&] { return reader.deliveries >= deliveries; });
  }

  TemporaryFolder folder_;
  std::string url_;
  TaskQueue queue_;
  RecordingReader first_;
  RecordingReader second_;
  RecordingReader third_;
};

TEST_F(XmlCacheTest, ReadersOfOneURLShareOneLoadWithinTenSeconds) {
  cache().requestXMLForURL(url_, &first_, queue_);
  cache().requestXMLForURL(url_, &second_, queue_);
  EXPECT_EQ(cache().documentCount(), 1u);
  waitFor(second_, 1);
  ASSERT_EQ(first_.deliveries, 1);
  ASSERT_NE(first_.xml, nullptr);
  EXPECT_EQ(first_.xml, second_.xml) << "one load, one document for both";

  // Thirty seconds later a third reader causes a new load, and only it hears of the result.
  const auto document = cache().cachedDocumentForURL(url_);
  document->setLoadTime(QVAXMLPlugInDocument::Clock::now() - 30s);
  write("<rss><channel><title>Two</title></channel></rss>");
  cache().requestXMLForURL(url_, &third_, queue_);
  // A new load has begun: it is still loading, or its thread has already finished and stamped the
  // document with a fresh load time (the state changes off this thread, so it is read first).
  const bool loading = document->state() == QVAXMLPlugInDocument::Loading;
  const auto loadTime = document->loadTime();
  EXPECT_TRUE(loading || (loadTime && *loadTime > QVAXMLPlugInDocument::Clock::now() - 10s));
  waitFor(third_, 1);
  EXPECT_EQ(XmlParser::nodeText(xmlDocGetRootElement(third_.xml.get())), "Two");
  EXPECT_EQ(first_.deliveries, 1);
  EXPECT_EQ(XmlParser::nodeText(xmlDocGetRootElement(first_.xml.get())), "One");

  // Within ten seconds a forced reload hands over the fresh copy at once, on this thread.
  cache().forceReloadForURL(url_, &first_);
  EXPECT_EQ(first_.deliveries, 2);
  EXPECT_EQ(first_.xml, third_.xml);
}

TEST_F(XmlCacheTest, ADocumentLeavesWithItsLastReaderAndFailuresAreRetried) {
  cache().requestXMLForURL(url_, &first_, queue_);
  cache().requestXMLForURL(url_, &second_, queue_);
  waitFor(second_, 1);
  cache().unregisterUser(&first_, url_);
  EXPECT_NE(cache().cachedDocumentForURL(url_), nullptr);
  cache().unregisterUser(&second_, url_);
  EXPECT_EQ(cache().cachedDocumentForURL(url_), nullptr);

  // A missing file delivers no document and leaves the document failed, so the next reader retries.
  const std::string missing = "file://" + (folder_ / "missing.xml").string();
  cache().requestXMLForURL(missing, &third_, queue_);
  waitFor(third_, 1);
  EXPECT_EQ(third_.xml, nullptr);
  const auto document = cache().cachedDocumentForURL(missing);
  ASSERT_NE(document, nullptr);
  EXPECT_EQ(document->state(), QVAXMLPlugInDocument::Failed);
  std::filesystem::copy_file(folder_ / "feed.xml", folder_ / "missing.xml");
  cache().requestXMLForURL(missing, &first_, queue_);
  waitFor(first_, 1);
  EXPECT_NE(first_.xml, nullptr);
  EXPECT_EQ(third_.deliveries, 1) << "a reader already told is not told again";
  cache().unregisterUser(&first_, missing);
  cache().unregisterUser(&third_, missing);
  EXPECT_EQ(cache().documentCount(), 0u);
}

TEST_F(XmlCacheTest, OnlyAFileThatChangedNeedsAReload) {
  const auto document = QVAXMLPlugInDocument::documentWithURL(url_, queue_);
  EXPECT_TRUE(document->needsReload()) << "never loaded";
  document->addUser(&first_);
  waitFor(first_, 1);
  EXPECT_FALSE(document->needsReload());
  std::filesystem::last_write_time(folder_ / "feed.xml",
                                   std::filesystem::last_write_time(folder_ / "feed.xml") + 5s);
  EXPECT_TRUE(document->needsReload());
  std::filesystem::remove(folder_ / "feed.xml");
  EXPECT_TRUE(document->needsReload());
  document->removeUser(&first_);

  EXPECT_TRUE(QVAXMLPlugInDocument::documentWithURL("http://127.0.0.1:9/feed.xml", queue_)->needsReload());
  EXPECT_EQ(QVAXMLPlugInDocument::documentWithURL("feed://example.org/rss", queue_)->url(),
            "http://example.org/rss");
}

TEST_F(XmlCacheTest, AReaderThatLeavesDuringALoadIsNotCalled) {
  cache().requestXMLForURL(url_, &first_, queue_);
  cache().unregisterUser(&first_, url_);
  queue_.pumpFor(300ms);
  EXPECT_EQ(first_.deliveries, 0);
}

}  // namespace
}  // namespace qva
