#include <gtest/gtest.h>

#include "framework/Structure.h"
#include "framework/Value.h"

namespace qva {
TEST(Value, Placeholder) { EXPECT_TRUE(Value().isNone()); }
}  // namespace qva
