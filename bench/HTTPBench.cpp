#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

#include "foundation/dispatch/TaskQueue.h"
#include "foundation/http/HTTPRequest.h"
#include "support/LoopbackHTTPServer.h"

namespace qva {
namespace {

using namespace std::chrono_literals;

// One GET on loopback from start to the response on the host queue, with a body of the given size.
void runRoundTrips(benchmark::State& state, HTTPCachePolicy policy) {
  const std::string body(static_cast<std::size_t>(state.range(0)), 'x');
  LoopbackHTTPServer server(
      [&](const LoopbackHTTPServer::Request&, LoopbackHTTPServer::Connection& connection) {
        connection.write(LoopbackHTTPServer::response(200, body, "Cache-Control: max-age=3600\r\n"));
      });
  TaskQueue queue;
  HTTPDownloadCache cache;
  HTTPClient client(cache);
  for (auto _ : state) {
    HTTPRequest request(server.url("/feed.xml"), client);
    request.setCachePolicy(policy);
    request.startAsynchronous(queue);
    if (!queue.pumpUntil(5s, [&] { return request.isFinished(); }) || request.error() ||
        request.response().body.size() != body.size()) {
      state.SkipWithError("the request failed");
      break;
    }
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_HTTPRoundTripLoopback(benchmark::State& state) {
  runRoundTrips(state, HTTPCachePolicy::ReloadIgnoringCache);
}
void BM_HTTPCachedResponse(benchmark::State& state) {
  runRoundTrips(state, HTTPCachePolicy::ReturnCacheElseLoad);
}

BENCHMARK(BM_HTTPRoundTripLoopback)->Arg(100)->Arg(1 << 20)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_HTTPCachedResponse)->Arg(100)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace
}  // namespace qva
