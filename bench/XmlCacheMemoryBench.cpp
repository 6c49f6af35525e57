// Memory the shared XML document cache holds once 1,000 readers each keep a small feed loaded from its
// own file URL.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "ProcessMemory.h"
#include "foundation/dispatch/TaskQueue.h"
#include "foundation/xml/QVAXMLPlugInCache.h"

namespace qva {
namespace {

using namespace std::chrono_literals;

constexpr int kDocuments = 1000;

struct Reader final : XmlDocumentUser {
  void documentDidLoad(QVAXMLPlugInDocument& document) override { loaded = document.xml() != nullptr; }
  bool loaded = false;
};

// kDocuments feeds of a few hundred bytes each, removed when the benchmark ends.
struct FeedFolder {
  FeedFolder()
      : path(std::filesystem::temp_directory_path() / ("qva-xml-cache-bench-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(path);
    for (int feed = 0; feed < kDocuments; ++feed) {
      std::ofstream(path / (std::to_string(feed) + ".xml"))
          << "<?xml version=\"1.0\"?><rss version=\"2.0\"><channel><title>Desk " << feed
          << "</title><item><title>Story " << feed << "</title><link>http://news.example/" << feed
          << "</link><description>One paragraph of the story as the wire carried it.</description>"
          << "</item></channel></rss>\n";
    }
  }
  ~FeedFolder() { std::filesystem::remove_all(path); }
  std::string url(int feed) const { return "file://" + (path / (std::to_string(feed) + ".xml")).string(); }
  std::filesystem::path path;
};

void BM_XmlCacheMemoryForDistinctURLs(benchmark::State& state) {
  const FeedFolder feeds;
  TaskQueue queue;
  QVAXMLPlugInCache& cache = QVAXMLPlugInCache::sharedCache();
  std::vector<std::unique_ptr<Reader>> readers;
  for (auto _ : state) {
    const ProcessMemory before = ProcessMemory::sample();
    for (int feed = 0; feed < kDocuments; ++feed) {
      auto& reader = *readers.emplace_back(std::make_unique<Reader>());
      cache.requestXMLForURL(feeds.url(feed), &reader, queue);
      if (!queue.pumpUntil(5s, [&] { return reader.loaded; })) {
        state.SkipWithError(("could not load " + feeds.url(feed)).c_str());
        break;
      }
    }
    const ProcessMemory after = ProcessMemory::sample();
    state.counters["documents"] = static_cast<double>(cache.documentCount());
    state.counters["resident_bytes_per_document"] =
        ProcessMemory::perItem(before.residentBytes, after.residentBytes, kDocuments);
    state.counters["heap_bytes_per_document"] =
        ProcessMemory::perItem(before.heapBytes, after.heapBytes, kDocuments);
    for (int feed = 0; feed < static_cast<int>(readers.size()); ++feed) {
      cache.unregisterUser(readers[static_cast<std::size_t>(feed)].get(), feeds.url(feed));
    }
    readers.clear();
  }
}
// One pass: a second one would reuse the memory the first gave back to the allocator.
BENCHMARK(BM_XmlCacheMemoryForDistinctURLs)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace qva
