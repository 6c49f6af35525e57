#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "foundation/store/QVADataStore.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

TEST(QVADataStore, AReferenceArchivesItsPathAndReadsTheFileAgainAfterUnarchiving) {
  const TemporaryFolder folder("data-store");
  std::ofstream(folder / "art.psd") << "8BPS";

  QVADataStore store = QVADataStore::dataStoreWithRelativePath("art.psd", folder.path().string());
  EXPECT_TRUE(store.isReference());
  EXPECT_TRUE(store.isRelativePath());
  ASSERT_TRUE(store.data());
  const PropertyList archive = store.archive();
  EXPECT_EQ(archive, PropertyList({{"path", "art.psd"}, {"basePath", folder.path().string()}}))
      << "bytes of a reference are never archived";

  std::ofstream(folder / "art.psd") << "changed";
  QVADataStore restored = QVADataStore::fromArchive(archive);
  ASSERT_TRUE(restored.data());
  EXPECT_EQ(std::string(restored.data()->begin(), restored.data()->end()), "changed");
  EXPECT_NE(restored.description().find(" path: art.psd basePath: "), std::string::npos);
}

TEST(QVADataStore, ValuesArchiveTheirBytesAndMissingFilesLeaveNone) {
  QVADataStore value = QVADataStore::dataStoreWithData({1, 2, 3});
  EXPECT_FALSE(value.isReference());
  EXPECT_EQ(value.fullPath(), std::nullopt);
  const QVADataStore restored = QVADataStore::fromArchive(value.archive());
  EXPECT_EQ(QVADataStore(restored).data(), (QVADataStore::Bytes{1, 2, 3}));
  EXPECT_NE(value.description().find(" 3 bytes of data"), std::string::npos);

  QVADataStore missing = QVADataStore::dataStoreWithAbsolutePath("/nonexistent/qva/file.psd");
  EXPECT_FALSE(missing.isRelativePath());
  EXPECT_EQ(missing.fullPath(), "/nonexistent/qva/file.psd");
  EXPECT_FALSE(missing.data());
  EXPECT_FALSE(QVADataStore::fromArchive(PropertyList("garbage")).isReference());
}

}  // namespace
}  // namespace qva
