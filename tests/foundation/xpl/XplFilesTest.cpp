#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <vector>

#include "foundation/xpl/xplFiles.h"
#include "framework/ProcessLog.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

TEST(XplReadFile, ReadsRegularFilesUpToTheLimitAndLogsBeyondIt) {
  const TemporaryFolder folder("xpl-limit");
  const std::string path = (folder / "ten bytes").string();
  const std::string tenBytes = std::string("0123456") + '\0' + "89";
  std::ofstream(path, std::ios::binary) << tenBytes;
  std::vector<std::string> logged;
  const ProcessLog::Sink previous =
      ProcessLog::setSink([&](const std::string& line) { logged.push_back(line); });
  std::string bytes = "stale";
  std::string error;
  EXPECT_TRUE(xpl_read_file(path, bytes, &error, 10));
  EXPECT_EQ(bytes, tenBytes);
  EXPECT_TRUE(logged.empty());

  EXPECT_FALSE(xpl_read_file(path, bytes, &error, 9));
  EXPECT_TRUE(bytes.empty());
  EXPECT_NE(error.find("larger than 9 bytes"), std::string::npos) << error;
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_NE(logged[0].find(path), std::string::npos) << logged[0];
  ProcessLog::setSink(previous);
}

// Devices, FIFOs and folders are refused at once: /dev/zero never ends, and a FIFO without a writer
// would hold the reading thread forever.
TEST(XplReadFile, RefusesAnythingButARegularFileWithoutWaiting) {
  const TemporaryFolder folder("xpl-kinds");
  const std::string fifo = (folder / "fifo").string();
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {std::string("/dev/zero"), fifo, folder.path().string()}) {
    std::string bytes;
    std::string error;
    EXPECT_FALSE(xpl_read_file(path, bytes, &error)) << path;
    EXPECT_TRUE(bytes.empty()) << path;
    EXPECT_NE(error.find("is not a regular file"), std::string::npos) << error;
  }
  std::string bytes;
  std::string error;
  EXPECT_FALSE(xpl_read_file((folder / "absent").string(), bytes, &error));
  EXPECT_NE(error.find("No such file"), std::string::npos) << error;
  EXPECT_FALSE(xpl_read_file((folder / "absent").string(), bytes));
}

}  // namespace
}  // namespace qva
