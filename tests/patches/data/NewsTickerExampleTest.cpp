#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "support/CompositionFrames.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

using namespace std::chrono_literals;

// White lettering in the crawl's bar.
int letteringPixels(const Bitmap& frame) {
  int lettering = 0;
  for (int y = 940; y < 1040; ++y) {
    for (int x = 0; x < 1920; ++x) {
      const std::uint8_t* pixel = frame.row(y) + x * 4;
      lettering += pixel[0] > 200 && pixel[1] > 200 && pixel[2] > 200 ? 1 : 0;
    }
  }
  return lettering;
}

TEST(NewsTickerExampleTest, TitlesCrawlAndTheTickerOutlivesItsFeed) {
  auto creation = Renderer::create(1920, 1080);
  if (!creation.renderer) {
    GTEST_SKIP() << creation.error;
  }
  TemporaryFolder folder("news-ticker");
  for (const char* file : {"news-ticker.qvc", "news-feed.rss"}) {
    std::filesystem::copy_file(std::filesystem::path(QVA_SOURCE_DIR) / "examples" / file, folder / file);
  }
  const auto feed = folder / "news-feed.rss";
  CompositionFrames ticker(*creation.renderer, (folder / "news-ticker.qvc").string());
  // Frames at 50 per second; the feed is asked again just before every 30 s mark.
  const auto renderAt = [&](long long index) {
    ASSERT_EQ(ticker.render(index), "");
    ticker.queue().pumpFor(300ms);
  };

  // The feed arrives between frames; the titles start at the next frame and crawl 200 pixels a second.
  renderAt(0);
  renderAt(100);
  renderAt(300);
  EXPECT_GT(letteringPixels(ticker.frame()), 500) << "titles crawl in from the right";

  // Truncated, removed and restored: the ticker renders on through every reload.
  const std::string whole = [&] {
    std::ifstream in(feed);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }();
  std::ofstream(feed) << whole.substr(0, whole.size() / 2);
  renderAt(1490);
  renderAt(1491);
  std::filesystem::remove(feed);
  renderAt(2990);
  renderAt(2991);
  renderAt(3400);
  EXPECT_GT(letteringPixels(ticker.frame()), 500) << "the crawl keeps the titles it has";
  std::ofstream(feed) << whole;
  renderAt(4490);
  renderAt(4491);
  renderAt(4800);
  EXPECT_GT(letteringPixels(ticker.frame()), 500);
}

}  // namespace
}  // namespace qva
