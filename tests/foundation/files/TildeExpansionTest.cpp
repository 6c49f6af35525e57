#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include "foundation/files/TildeExpansion.h"

namespace qva {
namespace {

TEST(TildeExpansion, ExpandsTheHomeFolderOfTheUserOrNamedAccount) {
  const passwd* me = ::getpwuid(::getuid());
  ASSERT_NE(me, nullptr);
  const std::string home = me->pw_dir;
  EXPECT_EQ(expandingTildeInPath("~"), home);
  EXPECT_EQ(expandingTildeInPath("~/a b"), home + "/a b");
  EXPECT_EQ(expandingTildeInPath(std::string("~") + me->pw_name + "/x"), home + "/x");
  EXPECT_EQ(expandingTildeInPath("~no-such-user-here/x"), "~no-such-user-here/x");
  EXPECT_EQ(expandingTildeInPath("/a/~"), "/a/~");
}

}  // namespace
}  // namespace qva
