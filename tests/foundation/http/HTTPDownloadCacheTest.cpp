#include <gtest/gtest.h>

#include "foundation/http/HTTPDownloadCache.h"

namespace qva {
namespace {

using namespace std::chrono_literals;
using Clock = HTTPDownloadCache::Clock;

HTTPResponse ok(std::string body, HTTPHeaderFields headers = {}) {
  HTTPResponse response;
  response.statusCode = 200;
  response.body = std::move(body);
  response.headers = std::move(headers);
  return response;
}

TEST(HTTPDownloadCacheTest, FreshnessFollowsMaxAgeAndExpires) {
  HTTPDownloadCache cache;
  const Clock::time_point now = Clock::from_time_t(1'700'000'000);  // 2023-11-14 22:13:20 GMT
  cache.store("http://a/plain", ok("a"), now);
  cache.store("http://a/max-age", ok("b", {{"Cache-Control", "public, max-age=30"}}), now);
  cache.store("http://a/no-cache", ok("c", {{"Cache-Control", "no-cache"}}), now);
  cache.store(
      "http://a/expires",
      ok("d", {{"Date", "Tue, 14 Nov 2023 22:13:20 GMT"}, {"Expires", "Tue, 14 Nov 2023 22:14:20 GMT"}}),
      now);
  cache.store("http://a/bad-expires", ok("e", {{"Expires", "0"}}), now);
  cache.store("http://a/no-store", ok("f", {{"Cache-Control", "no-store"}}), now);
  HTTPResponse missing = ok("g");
  missing.statusCode = 404;
  cache.store("http://a/missing", missing, now);

  EXPECT_TRUE(cache.find("http://a/plain", now + 24h)->fresh);
  EXPECT_TRUE(cache.find("http://a/max-age", now + 29s)->fresh);
  EXPECT_FALSE(cache.find("http://a/max-age", now + 31s)->fresh);
  EXPECT_FALSE(cache.find("http://a/no-cache", now)->fresh);
  EXPECT_TRUE(cache.find("http://a/expires", now + 59s)->fresh);
  EXPECT_FALSE(cache.find("http://a/expires", now + 61s)->fresh);
  EXPECT_FALSE(cache.find("http://a/bad-expires", now)->fresh);
  EXPECT_FALSE(cache.find("http://a/no-store", now));
  EXPECT_FALSE(cache.find("http://a/missing", now));
  EXPECT_EQ(cache.entryCount(), 5u);

  HTTPResponse notModified;
  notModified.statusCode = 304;
  notModified.headers = {{"Cache-Control", "max-age=100"}};
  const auto refreshed = cache.refresh("http://a/max-age", notModified, now + 40s);
  ASSERT_TRUE(refreshed);
  EXPECT_EQ(refreshed->body, "b");
  EXPECT_EQ(refreshed->header("cache-control"), "max-age=100");
  EXPECT_TRUE(cache.find("http://a/max-age", now + 120s)->fresh);
  EXPECT_FALSE(cache.refresh("http://a/gone", notModified, now));
  notModified.headers = {{"Cache-Control", "no-store"}};
  EXPECT_EQ(cache.refresh("http://a/plain", notModified, now)->body, "a");  // answered, then forgotten
  EXPECT_FALSE(cache.find("http://a/plain", now));
  EXPECT_EQ(cache.entryCount(), 4u);
}

TEST(HTTPDownloadCacheTest, LeastRecentlyUsedEntriesLeaveWhenTheBudgetIsSpent) {
  HTTPDownloadCache cache(1000);
  const std::string body(300, 'x');
  cache.store("u1", ok(body));
  cache.store("u2", ok(body));
  cache.store("u3", ok(body));
  EXPECT_TRUE(cache.find("u1"));  // u2 is now the least recently used
  cache.store("u4", ok(body));
  EXPECT_FALSE(cache.find("u2"));
  EXPECT_TRUE(cache.find("u1"));
  EXPECT_TRUE(cache.find("u3"));
  EXPECT_TRUE(cache.find("u4"));
  EXPECT_LE(cache.byteCount(), 1000u);
  EXPECT_EQ(cache.byteCount(), 3 * (2 + body.size()));

  cache.store("huge", ok(std::string(2000, 'y')));
  EXPECT_FALSE(cache.find("huge"));
  EXPECT_EQ(cache.entryCount(), 3u);
  cache.store("u1", ok("short"));  // a replacement is counted once
  EXPECT_EQ(cache.byteCount(), 2 * (2 + body.size()) + 2 + 5);
  cache.clear();
  EXPECT_EQ(cache.entryCount(), 0u);
  EXPECT_EQ(cache.byteCount(), 0u);
}

}  // namespace
}  // namespace qva
