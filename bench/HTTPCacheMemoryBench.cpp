// Memory the HTTP download cache holds after 1,000 GETs of small feeds from distinct loopback URLs.
#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

#include "ProcessMemory.h"
#include "foundation/dispatch/TaskQueue.h"
#include "foundation/http/HTTPRequest.h"
#include "support/LoopbackHTTPServer.h"

namespace qva {
namespace {

using namespace std::chrono_literals;

constexpr int kURLs = 1000;

void BM_HTTPCacheMemoryForDistinctURLs(benchmark::State& state) {
  LoopbackHTTPServer::bypassProxiesForLoopback();
  LoopbackHTTPServer server(
      [](const LoopbackHTTPServer::Request& request, LoopbackHTTPServer::Connection& connection) {
        const std::string body =
            "<?xml version=\"1.0\"?><rss version=\"2.0\"><channel><title>" + request.target +
            "</title><item><title>Story</title><description>One paragraph of the story as the "
            "wire carried it.</description></item></channel></rss>\n";
        connection.write(LoopbackHTTPServer::response(
            200, body, "Content-Type: application/rss+xml\r\nCache-Control: max-age=3600\r\n"));
      });
  TaskQueue queue;
  HTTPDownloadCache cache;
  HTTPClient client(cache);
  for (auto _ : state) {
    const ProcessMemory before = ProcessMemory::sample();
    for (int feed = 0; feed < kURLs; ++feed) {
      HTTPRequest request(server.url("/feeds/" + std::to_string(feed) + ".xml"), client);
      request.startAsynchronous(queue);
      if (!queue.pumpUntil(5s, [&] { return request.isFinished(); }) || request.error()) {
        state.SkipWithError(("could not load " + request.url()).c_str());
        break;
      }
    }
    const ProcessMemory after = ProcessMemory::sample();
    state.counters["entries"] = static_cast<double>(cache.entryCount());
    state.counters["cache_bytes_per_entry"] =
        ProcessMemory::perItem(0, cache.byteCount(), cache.entryCount());
    state.counters["resident_bytes_per_entry"] =
        ProcessMemory::perItem(before.residentBytes, after.residentBytes, kURLs);
    state.counters["heap_bytes_per_entry"] = ProcessMemory::perItem(before.heapBytes, after.heapBytes, kURLs);
    cache.clear();
  }
}
// One pass: a second one would reuse the memory the first gave back to the allocator.
BENCHMARK(BM_HTTPCacheMemoryForDistinctURLs)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace qva
