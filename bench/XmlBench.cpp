// Parsing a 1 MB RSS feed and running ten XPath queries over it, compared with xmllint answering the same
// queries on the same file (one process per query, as a shell script would run it).
#include <benchmark/benchmark.h>
#include <libxml/xpath.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "foundation/xml/XmlParser.h"

namespace {

constexpr std::array<const char*, 10> kQueries = {"/rss/channel/title",
                                                  "//item/title",
                                                  "//item/link",
                                                  "//item[position() < 10]",
                                                  "//item/description",
                                                  "//item/pubDate",
                                                  "//item[category='World']",
                                                  "//item/guid",
                                                  "/rss/channel/item[last()]/title",
                                                  "//item[contains(title, '7')]/title"};

// A feed of about 1 MB in the temporary folder, removed when the benchmark ends.
struct FeedFile {
  std::string path;
  ~FeedFile() { std::filesystem::remove(path); }
};

const std::string& feedPath() {
  static const FeedFile feed{[] {
    const std::string file =
        (std::filesystem::temp_directory_path() / ("qva-xml-bench-" + std::to_string(getpid()) + ".rss"))
            .string();
    std::ofstream out(file, std::ios::binary);
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<rss version=\"2.0\"><channel><title>Desk</title>\n";
    for (int item = 0; out.tellp() < 1024 * 1024; ++item) {
      out << "<item><title>Story " << item << " of the day</title><link>http://news.example/" << item
          << "</link><description>&lt;p&gt;The story number " << item
          << " as the wire carried it, with a paragraph of text to read aloud.&lt;/p&gt;</description>"
          << "<category>" << (item % 3 == 0 ? "World" : "Local") << "</category><pubDate>Tue, 24 Nov 2026 "
          << item % 24 << ":00:00 GMT</pubDate><guid>story-" << item << "</guid></item>\n";
    }
    out << "</channel></rss>\n";
    return file;
  }()};
  return feed.path;
}

std::string readFeed() {
  std::ifstream in(feedPath(), std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

void BM_ParseAndTenQueries(benchmark::State& state) {
  const std::string bytes = readFeed();
  for (auto _ : state) {
    std::string error;
    const qva::XmlDocumentRef document = qva::XmlParser::parse(bytes, error);
    xmlXPathContextPtr xpath = xmlXPathNewContext(document.get());
    std::size_t nodes = 0;
    for (const char* query : kQueries) {
      xmlXPathObjectPtr result = xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>(query), xpath);
      for (int i = 0; result->nodesetval != nullptr && i < result->nodesetval->nodeNr; ++i) {
        nodes += qva::XmlParser::nodeText(result->nodesetval->nodeTab[i]).size();
      }
      xmlXPathFreeObject(result);
    }
    xmlXPathFreeContext(xpath);
    benchmark::DoNotOptimize(nodes);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_ParseAndTenQueries)->Unit(benchmark::kMillisecond);

void BM_XmllintTenQueries(benchmark::State& state) {
  if (std::system("command -v xmllint > /dev/null 2>&1") != 0) {
    state.SkipWithError("xmllint is not installed (libxml2-utils)");
    return;
  }
  for (auto _ : state) {
    for (const char* query : kQueries) {
      const std::string command =
          std::string("xmllint --xpath \"") + query + "\" '" + feedPath() + "' > /dev/null";
      if (std::system(command.c_str()) != 0) {
        state.SkipWithError(("xmllint failed: " + command).c_str());
        return;
      }
    }
  }
}
BENCHMARK(BM_XmllintTenQueries)->Unit(benchmark::kMillisecond);

}  // namespace
