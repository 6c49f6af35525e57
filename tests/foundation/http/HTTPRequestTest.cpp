#include <gtest/gtest.h>
#include <zlib.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "foundation/dispatch/TaskQueue.h"
#include "foundation/http/HTTPRequest.h"
#include "support/LoopbackHTTPServer.h"

namespace qva {
namespace {

using namespace std::chrono_literals;
using Connection = LoopbackHTTPServer::Connection;
using ServedRequest = LoopbackHTTPServer::Request;

// zlib-wrapped (deflate) or gzip-wrapped bytes.
std::string compressed(const std::string& text, bool gzip) {
  z_stream stream{};
  deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, gzip ? 15 + 16 : 15, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&stream, text.size()) + 32, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

class HTTPRequestTest : public ::testing::Test {
 protected:
  HTTPRequestTest() { LoopbackHTTPServer::bypassProxiesForLoopback(); }

  std::unique_ptr<HTTPRequest> request(const std::string& url) {
    return std::make_unique<HTTPRequest>(url, client_);
  }
  // Starts the request and pumps the host queue until it ends, for at most the limit.
  bool send(HTTPRequest& request, std::chrono::milliseconds limit = 10000ms) {
    request.startAsynchronous(queue_);
    return waitUntilFinished(request, limit);
  }
  bool waitUntilFinished(HTTPRequest& request, std::chrono::milliseconds limit = 10000ms) {
    return queue_.pumpUntil(limit, [&] { return request.isFinished(); });
  }
  // A request to the URL, with the method when one is given, sent and finished.
  std::unique_ptr<HTTPRequest> sent(const std::string& url, const char* method = nullptr) {
    auto made = request(url);
    if (method != nullptr) {
      made->setRequestMethod(method);
    }
    EXPECT_TRUE(send(*made)) << url;
    return made;
  }
  // A server handler that gives every request the same answer, once release_ is set if held back.
  LoopbackHTTPServer::Handler answering(int status, std::string body, std::string headers = "",
                                        bool heldBack = false) {
    return [=, this](const ServedRequest&, Connection& connection) {
      if (heldBack) {
        LoopbackHTTPServer::holdBack(5000ms, release_);
      }
      connection.write(LoopbackHTTPServer::response(status, body, headers));
    };
  }

  TaskQueue queue_;
  HTTPDownloadCache cache_;
  HTTPClient client_{cache_};
  std::atomic<bool> release_{false};
};

TEST_F(HTTPRequestTest, ResponseArrivesOnTheHostThreadWhileItKeepsRunning) {
  LoopbackHTTPServer server(answering(
      200, "héllo", "Content-Type: text/plain; charset=utf-8\r\nX-Feed: one\r\nX-Feed: two\r\n", true));
  auto get = request(server.url("/feed"));
  std::thread::id callbackThread;
  int completions = 0;
  get->setCompletionCallback([&] {
    callbackThread = std::this_thread::get_id();
    ++completions;
  });
  get->startAsynchronous(queue_);
  // The host thread goes on pumping while the server holds the answer back.
  for (int i = 0; i < 10; ++i) {
    queue_.pumpFor(5ms);
  }
  EXPECT_FALSE(get->isFinished());
  release_ = true;
  ASSERT_TRUE(waitUntilFinished(*get));
  EXPECT_EQ(completions, 1);
  EXPECT_EQ(callbackThread, std::this_thread::get_id());
  EXPECT_FALSE(get->error());
  const HTTPResponse response = get->response();
  EXPECT_EQ(response.statusCode, 200);
  EXPECT_EQ(response.announcedContentLength, 6);
  EXPECT_EQ(response.bodyString(), "héllo");
  EXPECT_EQ(response.header("x-feed"), "one, two");
}

TEST_F(HTTPRequestTest, MethodHeadersAndBodyReachTheServer) {
  LoopbackHTTPServer server(answering(201, ""));
  auto post = request(server.url("/items?id=7"));
  post->setRequestMethod("POST");
  post->addRequestHeader("X-Token", "abc");
  post->addRequestHeader("Content-Type", "text/plain");
  post->setPostBody("payload é");
  ASSERT_TRUE(send(*post));
  sent(server.url("/empty"), "POST");
  sent(server.url("/items/7"), "DELETE");

  const auto received = server.requests();
  ASSERT_EQ(received.size(), 3u);
  EXPECT_EQ(received[0].method, "POST");
  EXPECT_EQ(received[0].target, "/items?id=7");
  EXPECT_EQ(received[0].header("X-Token"), "abc");
  EXPECT_EQ(received[0].header("Content-Type"), "text/plain");
  EXPECT_EQ(received[0].body, "payload é");
  EXPECT_EQ(received[1].method, "POST");
  EXPECT_EQ(received[1].body, "");
  EXPECT_FALSE(received[1].header("Content-Type"));
  EXPECT_EQ(received[2].method, "DELETE");
  EXPECT_EQ(post->response().statusCode, 201);
}

TEST_F(HTTPRequestTest, LineBreaksInHeadersAreRefusedBeforeAnythingIsSent) {
  LoopbackHTTPServer server(answering(200, ""));
  auto injectedValue = request(server.url("/"));
  injectedValue->addRequestHeader("X-A", "1\r\nX-Evil: yes");
  bool failed = false;
  injectedValue->setFailureCallback([&] { failed = true; });
  ASSERT_TRUE(send(*injectedValue));
  EXPECT_TRUE(failed);
  EXPECT_NE(injectedValue->error().value_or("").find("line break"), std::string::npos);
  auto injectedName = request(server.url("/"));
  injectedName->addRequestHeader("X-B\nX-Evil", "1");
  ASSERT_TRUE(send(*injectedName));
  EXPECT_NE(injectedName->error().value_or("").find("not valid"), std::string::npos);
  EXPECT_TRUE(server.requests().empty());
}

TEST_F(HTTPRequestTest, FollowsRedirectsAndDecodesCompressedAndChunkedBodies) {
  const std::string text(5000, 'x');
  LoopbackHTTPServer server([&](const ServedRequest& served, Connection& connection) {
    if (served.target == "/old") {
      connection.write(LoopbackHTTPServer::response(302, "", "Location: /gzip\r\n"));
    } else if (served.target == "/gzip") {
      connection.write(
          LoopbackHTTPServer::response(200, compressed(text, true), "Content-Encoding: gzip\r\n"));
    } else if (served.target == "/deflate") {
      connection.write(
          LoopbackHTTPServer::response(200, compressed(text, false), "Content-Encoding: deflate\r\n"));
    } else {
      connection.write("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nConnection: close\r\n\r\n");
      connection.write("5\r\nfirst\r\n");
      std::this_thread::sleep_for(20ms);
      connection.write("6\r\nsecond\r\n0\r\n\r\n");
    }
  });
  auto redirected = sent(server.url("/old"));
  EXPECT_EQ(redirected->response().statusCode, 200);
  EXPECT_EQ(redirected->response().body, text);
  EXPECT_LT(redirected->response().announcedContentLength, static_cast<std::int64_t>(text.size()));
  EXPECT_TRUE(server.requests().at(0).header("Accept-Encoding").value_or("").find("gzip") !=
              std::string::npos);
  auto deflated = sent(server.url("/deflate"));
  EXPECT_EQ(deflated->response().body, text);
  auto chunked = sent(server.url("/chunked"));
  EXPECT_EQ(chunked->response().body, "firstsecond");
  EXPECT_EQ(chunked->response().announcedContentLength, -1);
}

TEST_F(HTTPRequestTest, ErrorStatusesAreResponsesButTransportFailuresAreErrors) {
  LoopbackHTTPServer server([](const ServedRequest& served, Connection& connection) {
    if (served.target == "/missing") {
      connection.write(LoopbackHTTPServer::response(404, "no such feed"));
    } else if (served.target == "/broken") {
      connection.write(LoopbackHTTPServer::response(500, "oops"));
    }  // anything else: the connection closes without an answer
  });
  auto missing = sent(server.url("/missing"));
  EXPECT_FALSE(missing->error());
  EXPECT_EQ(missing->response().statusCode, 404);
  EXPECT_EQ(missing->response().body, "no such feed");
  auto broken = sent(server.url("/broken"));
  EXPECT_EQ(broken->response().statusCode, 500);

  auto hungUp = sent(server.url("/hang-up"));
  EXPECT_NE(hungUp->error().value_or("").find("connection was lost"), std::string::npos);
  auto unreachable = sent(LoopbackHTTPServer::closedURL("/"));
  EXPECT_NE(unreachable->error().value_or("").find("Could not connect"), std::string::npos);
  auto notHTTP = sent("file:///etc/passwd");
  EXPECT_NE(notHTTP->error().value_or("").find("not a valid http"), std::string::npos);
  EXPECT_TRUE(notHTTP->response().body.empty());
}

TEST_F(HTTPRequestTest, ABodyPastTheClientsLimitFails) {
  LoopbackHTTPServer server([](const ServedRequest&, Connection& connection) {
    connection.write("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nConnection: close\r\n\r\n");
    const std::string chunk = "400\r\n" + std::string(1024, 'x') + "\r\n";
    for (int i = 0; i < 64 && connection.write(chunk); ++i) {
    }
    connection.write("0\r\n\r\n");
  });
  HTTPClient smallClient(cache_, 10000);
  HTTPRequest endless(server.url("/endless"), smallClient);
  ASSERT_TRUE(send(endless));
  EXPECT_EQ(endless.error(), "The response is larger than 10000 bytes.");
  EXPECT_TRUE(endless.response().body.empty());
}

TEST_F(HTTPRequestTest, ASlowServerPastTheTimeOutFails) {
  LoopbackHTTPServer server(answering(200, "late", "", true));
  auto slow = request(server.url("/slow"));
  slow->setTimeOutSeconds(0.2);
  ASSERT_TRUE(send(*slow, 4000ms));
  EXPECT_NE(slow->error().value_or("").find("timed out"), std::string::npos);
  release_ = true;
}

TEST_F(HTTPRequestTest, ACancelledRequestNeverReports) {
  LoopbackHTTPServer server(answering(200, "late", "", true));
  auto cancelled = request(server.url("/slow"));
  bool reported = false;
  cancelled->setCompletionCallback([&] { reported = true; });
  cancelled->setFailureCallback([&] { reported = true; });
  cancelled->startAsynchronous(queue_);
  queue_.pumpFor(50ms);
  cancelled->cancel();
  release_ = true;
  queue_.pumpFor(200ms);
  EXPECT_FALSE(reported);
  EXPECT_FALSE(cancelled->isFinished());

  // One whose answer is already on the host queue is dropped there.
  LoopbackHTTPServer quick(answering(200, ""));
  auto late = request(quick.url("/"));
  late->setCompletionCallback([&] { reported = true; });
  late->startAsynchronous(queue_);
  while (quick.requests().empty()) {
    std::this_thread::sleep_for(5ms);
  }
  std::this_thread::sleep_for(100ms);
  late->cancel();
  queue_.pumpFor(50ms);
  EXPECT_FALSE(reported);
}

class HTTPCachePolicyTest : public HTTPRequestTest {
 protected:
  // Serves "version N" (N counting the requests) with the caching headers given per path.
  LoopbackHTTPServer server_{[this](const ServedRequest& served, Connection& connection) {
    const int version = ++served_;
    if (served.target == "/etag" && served.header("If-None-Match") == "\"v1\"") {
      connection.write(
          "HTTP/1.1 304 Not Modified\r\nETag: \"v1\"\r\nCache-Control: max-age=0\r\n"
          "Connection: close\r\n\r\n");
      return;
    }
    const std::string headers = served.target == "/fresh"      ? "Cache-Control: max-age=60\r\n"
                                : served.target == "/no-store" ? "Cache-Control: no-store\r\n"
                                : served.target == "/etag" ? "Cache-Control: max-age=0\r\nETag: \"v1\"\r\n"
                                                           : "";
    connection.write(LoopbackHTTPServer::response(200, "version " + std::to_string(version), headers));
  }};
  std::atomic<int> served_{0};

  std::string fetch(const std::string& path, HTTPCachePolicy policy, bool* fromCache = nullptr) {
    auto get = request(server_.url(path));
    get->setCachePolicy(policy);
    EXPECT_TRUE(send(*get));
    if (fromCache != nullptr) {
      *fromCache = get->didUseCachedResponse();
    }
    return get->error() ? "error: " + *get->error() : get->response().body;
  }
};

TEST_F(HTTPCachePolicyTest, EachPolicyReadsAndLoadsAsItSays) {
  using enum HTTPCachePolicy;
  EXPECT_EQ(fetch("/fresh", ReturnCacheDontLoad), "error: The resource is not in the download cache.");
  EXPECT_EQ(fetch("/fresh", ReturnCacheElseLoad), "version 1");
  bool fromCache = false;
  EXPECT_EQ(fetch("/fresh", ReturnCacheElseLoad, &fromCache), "version 1");
  EXPECT_TRUE(fromCache);
  EXPECT_EQ(fetch("/fresh", ReturnCacheDontLoad), "version 1");
  EXPECT_EQ(fetch("/fresh", ReloadIgnoringCache, &fromCache), "version 2");
  EXPECT_FALSE(fromCache);
  EXPECT_EQ(fetch("/fresh", ReturnCacheElseLoad), "version 2");  // the reload replaced the entry
  EXPECT_EQ(served_, 2);
}

TEST_F(HTTPCachePolicyTest, CachingHeadersDecideWhatIsKeptAndRevalidated) {
  using enum HTTPCachePolicy;
  EXPECT_EQ(fetch("/no-store", ReturnCacheElseLoad), "version 1");
  EXPECT_EQ(fetch("/no-store", ReturnCacheElseLoad), "version 2");
  EXPECT_EQ(fetch("/no-store", ReturnCacheDontLoad).rfind("error", 0), 0u);

  EXPECT_EQ(fetch("/etag", ReturnCacheElseLoad), "version 3");
  bool fromCache = false;
  EXPECT_EQ(fetch("/etag", ReturnCacheElseLoad, &fromCache), "version 3");  // stale: asked, 304
  EXPECT_TRUE(fromCache);
  EXPECT_EQ(served_, 4);
  EXPECT_EQ(server_.requests().back().header("If-None-Match"), "\"v1\"");
  EXPECT_EQ(fetch("/etag", ReturnCacheDontLoad), "version 3");  // age does not matter here
  EXPECT_EQ(served_, 4);
}

TEST_F(HTTPRequestTest, ProxiesComeFromTheEnvironment) {
  LoopbackHTTPServer proxy(answering(200, "via"));
  ::setenv("http_proxy", proxy.url("").c_str(), 1);
  auto proxied = request("http://feeds.example.invalid/news.xml");
  const bool finished = send(*proxied);
  ::unsetenv("http_proxy");
  ASSERT_TRUE(finished);
  EXPECT_EQ(proxied->response().body, "via");
  ASSERT_EQ(proxy.requests().size(), 1u);
  EXPECT_EQ(proxy.requests()[0].target, "http://feeds.example.invalid/news.xml");
}

}  // namespace
}  // namespace qva
