#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "framework/QVAGreeter.h"

namespace qva {
namespace {

class QVAGreeterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    home = std::filesystem::temp_directory_path() /
           ("qva-greeter-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(home);
  }
  void TearDown() override { std::filesystem::remove_all(home); }

  QVAGreeter makeGreeter(const std::string& processName, int answer = 1000) {
    return QVAGreeter(
        {processName, home.string()},
        [this, answer](const std::string& message, const std::string& first, const std::string& second) {
          shown.push_back(message + "|" + first + "|" + second);
          return answer;
        },
        [this](const std::string& address) { opened.push_back(address); });
  }

  std::filesystem::path home;
  std::vector<std::string> shown;
  std::vector<std::string> opened;
};

TEST_F(QVAGreeterTest, GreetsOncePerProcessInTheEditorOnly) {
  QVAGreeter editor = makeGreeter("Composition Editor");
  for (int patch = 0; patch < 10; ++patch) {
    editor.showThanks();
  }
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_EQ(shown[0], "Thanks for using Velmora products!|OK|Velmora Website");
  EXPECT_TRUE(opened.empty());

  QVAGreeter playout = makeGreeter("qva");
  playout.showThanks();
  EXPECT_EQ(shown.size(), 1u);
  EXPECT_FALSE(playout.timesThanked());
}

TEST_F(QVAGreeterTest, TheSecondButtonOpensTheWebsite) {
  QVAGreeter editor = makeGreeter("Composition Editor", QVAGreeter::kSecondButtonReturn);
  editor.showThanks();
  EXPECT_EQ(opened.size(), 1u);
}

TEST_F(QVAGreeterTest, TheSuppressFileIsReadOnceWhenTheGreeterIsMade) {
  std::ofstream(home / ".qva_suppress_thanks").put('x');
  QVAGreeter suppressed = makeGreeter("Composition Editor");
  std::filesystem::remove(home / ".qva_suppress_thanks");
  suppressed.showThanks();
  EXPECT_TRUE(shown.empty());
  EXPECT_TRUE(QVAGreeter::decideShowThanks({"Composition Editor", std::nullopt}))
      << "without a home folder the greeting is allowed";
  EXPECT_FALSE(QVAGreeter::decideShowThanks({"Composition Editor2", std::nullopt}));
}

}  // namespace
}  // namespace qva
