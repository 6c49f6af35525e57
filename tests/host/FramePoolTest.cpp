#include <gtest/gtest.h>

#include "host/FramePool.h"

namespace qva {
namespace {

TEST(FramePoolTest, FrameLetGoIsHandedOutAgainAndMayOutliveThePool) {
  std::shared_ptr<Bitmap> kept;
  {
    FramePool pool(16, 8);
    std::shared_ptr<Bitmap> first = pool.take();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->width(), 16);
    EXPECT_EQ(first->rowBytes(), 64u);
    const std::uint8_t* memory = first->bytes();
    first->bytes()[0] = 7;
    std::shared_ptr<Bitmap> second = pool.take();
    EXPECT_NE(second->bytes(), memory);
    first.reset();
    // The same memory again, as it was left: every frame is drawn over whole.
    std::shared_ptr<Bitmap> again = pool.take();
    EXPECT_EQ(again->bytes(), memory);
    EXPECT_EQ(again->bytes()[0], 7);
    kept = std::move(second);
  }
  // An output still holding a frame when playout ends lets it go later without harm.
  kept->bytes()[0] = 1;
  kept.reset();
}

}  // namespace
}  // namespace qva
