#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "foundation/files/FileAttributes.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

TEST(FileAttributes, EqualUntilSomethingButAccessChanges) {
  const TemporaryFolder folder("attributes");
  const std::string file = (folder / "a file").string();
  std::ofstream(file) << "abc";
  const std::optional<FileAttributes> first = FileAttributes::read(file);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->size, 3u);
  EXPECT_FALSE(first->isDirectory());
  { std::ifstream(file).get(); }
  EXPECT_EQ(FileAttributes::read(file), first);
  std::filesystem::last_write_time(file, std::filesystem::last_write_time(file) - std::chrono::seconds(10));
  EXPECT_NE(FileAttributes::read(file), first);

  std::filesystem::create_symlink(folder.path(), folder / "link");
  EXPECT_TRUE(FileAttributes::read((folder / "link").string())->isDirectory());
  EXPECT_TRUE(FileAttributes::read((folder / "link").string(), false)->isSymbolicLink());
  EXPECT_FALSE(FileAttributes::read((folder / "missing").string()));
  EXPECT_FALSE(FileAttributes::read(""));
}

}  // namespace
}  // namespace qva
