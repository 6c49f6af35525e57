// The scroller's strip: how the pieces are assembled from the ports, when new strings take effect, and
// what bad input does. These run without GL, as in a host that offers none.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <fstream>

#include "ScrollerTestSupport.h"
#include "support/DriveScript.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

using Texts = std::vector<std::string>;

class TextScrollerStripTest : public ::testing::Test {
 protected:
  void SetUp() override {
    driver_.set("inputWidth", Value(std::uint32_t{80}));
    driver_.set("inputHeight", Value(std::uint32_t{60}));
    driver_.set("inputStrings", stringArray({"A", "B"}));
    driver_.set("inputSecondaryStrings", stringArray({"x"}));
  }

  // The pieces of the strip after a frame at the time.
  Texts piecesAt(double time) {
    EXPECT_TRUE(driver_.frame(time));
    return pieceTexts(driver_);
  }

  PatchDriver driver_ = driverFor<TextScrollerPlugIn>();
};

TEST(TextScrollerClassTest, PortsAndAttributesThroughTheDrive) {
  const auto lines =
      drivePatch("TextScrollerPlugIn", PropertyList::parse(R"([{"op": "attributes"}, {"op": "ports"}])"));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0]["name"], "QVA Text Scroller");
  EXPECT_EQ(lines[0]["executionMode"], 2);
  EXPECT_EQ(lines[0]["timeMode"], 2);
  const std::string description = lines[0]["description"];
  EXPECT_NE(description.find("\"Scrolling Speed\" is in px/s.\n\nThe \"Finished\""), std::string::npos);
  EXPECT_EQ(lines[1]["inputs"].size(), 22u);
  const PropertyList& reset = lines[1]["inputs"][20]["attributes"];
  EXPECT_EQ(reset["menu"], PropertyList::parse(R"(["Continue", "Restart", "Finish", "Append"])"));
  EXPECT_EQ(reset["max"], 3);
  EXPECT_EQ(lines[1]["inputs"][5]["attributes"]["default"], " +++ ");
  EXPECT_EQ(lines[1]["inputs"][19]["attributes"]["default"], 1);
  EXPECT_EQ(lines[1]["outputs"][0]["key"], "outputImage");
  EXPECT_EQ(lines[1]["outputs"][1]["key"], "outputFinished");
}

TEST_F(TextScrollerStripTest, PiecesJoinStringsSecondariesAndSeparators) {
  EXPECT_EQ(piecesAt(0), (Texts{"A", ": ", "x", " +++ ", "B"}));
  double sum = 0;
  for (const auto& piece : scrollerOf(driver_).strings()) {
    EXPECT_GT(piece->width(), 0);
    sum += piece->width();
  }
  EXPECT_EQ(scrollerOf(driver_).totalWidth(), sum);

  // A loop needs a separator between the last string and the first.
  driver_.set("inputRepeatMode", Value(std::uint32_t{1}));
  EXPECT_EQ(piecesAt(0.1), (Texts{"A", ": ", "x", " +++ ", "B", " +++ "}));

  // "Separator First" alone changes nothing until the strings or a style change.
  driver_.set("inputSeparatorFirst", Value(true));
  EXPECT_EQ(piecesAt(0.2).size(), 6u);
  driver_.set("inputSecondaryStrings", stringArray({"x", "y", "z"}));
  EXPECT_EQ(piecesAt(0.3), (Texts{" +++ ", "A", ": ", "x", " +++ ", "B", ": ", "y"}));
}

TEST_F(TextScrollerStripTest, SeparatorPieces) {
  TemporaryFolder folder("scroller-separators");
  writeBlock((folder / "bullet.png").string(), 12, 8, 12);
  std::ofstream(folder / "empty.png").close();
  driver_.context().setCompositionPath((folder / "ticker.qvc").string());
  ASSERT_TRUE(driver_.frame(0));
  const auto separator = scrollerOf(driver_).strings()[3];

  // An empty separator string keeps the separator there is; the list is still rebuilt.
  driver_.set("inputSeparatorString", Value(""));
  driver_.set("inputStrings", stringArray({"A", "B", "C"}));
  EXPECT_EQ(piecesAt(0.1), (Texts{"A", ": ", "x", " +++ ", "B", " +++ ", "C"}));

  // A style change rebuilds the list around the same separator piece.
  driver_.set("inputSeparatorRTFStyle", Value(""));
  ASSERT_TRUE(driver_.frame(0.2));
  EXPECT_EQ(scrollerOf(driver_).strings()[3], separator);

  // An image path relative to the composition's folder; when both change at once the image wins.
  driver_.set("inputSeparatorString", Value(" | "));
  driver_.set("inputSeparatorImage", Value("bullet.png"));
  EXPECT_EQ(piecesAt(0.3), (Texts{"A", ": ", "x", "[image 12]", "B", "[image 12]", "C"}));
  EXPECT_EQ(scrollerOf(driver_).strings()[3]->height(), 8);

  // A picture that cannot be had leaves the separator as it is, with a line in the log.
  for (const char* bad : {"missing.png", "empty.png"}) {
    const std::size_t logged = driver_.processLog().size();
    driver_.set("inputSeparatorImage", Value(bad));
    EXPECT_EQ(piecesAt(0.4)[3], "[image 12]") << bad;
    ASSERT_EQ(driver_.processLog().size(), logged + 1);
    EXPECT_NE(driver_.processLog().back().find(bad), std::string::npos);
  }
  // A new separator string replaces the image.
  driver_.set("inputSeparatorString", Value(" * "));
  EXPECT_EQ(piecesAt(0.5)[3], " * ");
}

// Steps a scroller at 80 pixels a second (one 80-pixel tile a second) until its strip changes; answers the
// second at which it did, or -1.
int secondOfNextChange(PatchDriver& driver, int from, int to) {
  const Texts before = pieceTexts(driver);
  for (int second = from; second <= to; ++second) {
    EXPECT_TRUE(driver.frame(second));
    if (pieceTexts(driver) != before) {
      return second;
    }
  }
  return -1;
}

TEST_F(TextScrollerStripTest, FinishAndAppendWaitForTheEndOfThePass) {
  for (const std::uint32_t mode : {2u, 3u}) {
    PatchDriver driver = driverFor<TextScrollerPlugIn>();
    driver.set("inputWidth", Value(std::uint32_t{80}));
    driver.set("inputSpeed", Value(80.0));
    driver.set("inputRepeatMode", Value(std::uint32_t{1}));
    driver.set("inputResetMode", Value(mode));
    // With no strings yet, the first ones take effect at once.
    driver.set("inputStrings", stringArray({"Alpha", "Beta", "Gamma"}));
    ASSERT_TRUE(driver.frame(0));
    EXPECT_EQ(pieceTexts(driver), (Texts{"Alpha", " +++ ", "Beta", " +++ ", "Gamma", " +++ "}));
    const double pass = scrollerOf(driver).totalWidth();
    ASSERT_GT(pass, 160);

    driver.set("inputStrings", stringArray({"Delta"}));
    // The tile that holds the end of the pass is rendered at the second it begins.
    const int end = static_cast<int>(pass / 80);
    EXPECT_EQ(secondOfNextChange(driver, 1, end + 2), end) << "reset mode " << mode;
    if (mode == 2) {
      EXPECT_EQ(pieceTexts(driver), (Texts{"Delta", " +++ "}));
    } else {
      // Appended without a leading separator in Loop mode.
      EXPECT_EQ(pieceTexts(driver),
                (Texts{"Alpha", " +++ ", "Beta", " +++ ", "Gamma", " +++ ", "Delta", " +++ "}));
    }
  }
}

TEST_F(TextScrollerStripTest, ContinueAndRestartTakeNewStringsAtOnce) {
  for (const std::uint32_t mode : {0u, 1u}) {
    PatchDriver driver = driverFor<TextScrollerPlugIn>();
    driver.set("inputSpeed", Value(80.0));
    driver.set("inputResetMode", Value(mode));
    driver.set("inputStrings", stringArray({"Alpha", "Beta", "Gamma"}));
    ASSERT_TRUE(driver.frame(0));
    ASSERT_TRUE(driver.frame(1));
    const auto tiles = scrollerOf(driver).renderedTileCount();
    driver.set("inputStrings", stringArray({"Delta"}));
    ASSERT_TRUE(driver.frame(1.5));
    EXPECT_EQ(pieceTexts(driver), (Texts{"Delta"}));
    // Restart renders the strip's first tile again at once; Continue runs on to the next boundary.
    EXPECT_EQ(scrollerOf(driver).renderedTileCount(), tiles + (mode == 1 ? 1 : 0));
  }
}

TEST_F(TextScrollerStripTest, StylesAndIgnoredStyles) {
  driver_.set("inputStrings",
              stringArray({"A", R"({\rtf1\ansi{\fonttbl\f0 Courier;}\f0\fs30 Typed})", "{\\rtf1 broken"}));
  driver_.set("inputSecondaryStrings", Value());
  driver_.set("inputIgnoreRTFStyle", Value(true));
  ASSERT_TRUE(driver_.frame(0));
  const auto& pieces = scrollerOf(driver_).strings();
  ASSERT_EQ(pieceTexts(driver_), (Texts{"", " +++ ", "Typed", " +++ ", ""}));
  // Plain text read as RTF, and RTF that does not parse, make empty pieces.
  EXPECT_EQ(pieces[0]->width(), 0);
  EXPECT_EQ(pieces[4]->width(), 0);
  EXPECT_EQ(pieces[2]->string()->attributesAt(0).font.pointSize, 15);
  // The separator keeps the default style: LucidaGrande 40, red.
  EXPECT_EQ(pieces[1]->string()->attributesAt(0).font.pointSize, 40);
  EXPECT_EQ(pieces[1]->string()->attributesAt(0).foregroundColor, (Color{1, 0, 0, 1}));
  // An empty style string is no style: the reader's defaults.
  driver_.set("inputIgnoreRTFStyle", Value(false));
  driver_.set("inputRTFStyle", Value(""));
  ASSERT_TRUE(driver_.frame(0.1));
  EXPECT_EQ(pieces[0]->string()->attributesAt(0), TextAttributes{});
}

TEST_F(TextScrollerStripTest, EmptySizesFailUntilASizeIsGiven) {
  driver_.set("inputWidth", Value(std::uint32_t{0}));
  EXPECT_FALSE(driver_.frame(0));
  driver_.set("inputWidth", Value(std::uint32_t{80}));
  driver_.set("inputHeight", Value(std::uint32_t{0}));
  EXPECT_FALSE(driver_.frame(0.1));
  EXPECT_FALSE(driver_.frame(0.2));
  // Changes made meanwhile are still pending and take effect with the size.
  driver_.set("inputHeight", Value(std::uint32_t{20}));
  EXPECT_TRUE(driver_.frame(0.3));
  EXPECT_EQ(pieceTexts(driver_), (Texts{"A", ": ", "x", " +++ ", "B"}));
  ASSERT_TRUE(driver_.output("outputImage").imageValue());
  // Without GL the image has its size but cannot be drawn.
  EXPECT_EQ(driver_.output("outputImage").imageValue()->width(), 80);
  EXPECT_FALSE(driver_.output("outputImage").imageValue()->canRender());

  // A size beyond any tile is refused with one line in the log, not once a frame.
  driver_.set("inputWidth", Value(std::uint32_t{100000}));
  EXPECT_FALSE(driver_.frame(0.4));
  EXPECT_FALSE(driver_.frame(0.5));
  const auto& log = driver_.processLog();
  EXPECT_EQ(std::count_if(log.begin(), log.end(),
                          [](const std::string& line) {
                            return line.find("cannot make two tiles") != std::string::npos;
                          }),
            1);
}

TEST_F(TextScrollerStripTest, EmptyAndOddInputs) {
  for (const Value& strings : {stringArray({}), Value(), stringArray({"", ""})}) {
    PatchDriver driver = driverFor<TextScrollerPlugIn>();
    driver.set("inputStrings", strings);
    driver.set("inputRepeatMode", Value(std::uint32_t{1}));
    driver.set("inputSeparatorString", Value(""));
    for (double t : {0.0, 1.0, 100.0}) {
      EXPECT_TRUE(driver.frame(t));
    }
    EXPECT_EQ(scrollerOf(driver).totalWidth(), 0);
    EXPECT_TRUE(driver.output("outputImage").imageValue());
  }
  // Speeds that are no number, and times before the reset, draw the strip's start.
  for (double speed : {std::nan(""), HUGE_VAL, -50.0}) {
    driver_.set("inputSpeed", Value(speed));
    EXPECT_TRUE(driver_.frame(1));
    EXPECT_TRUE(driver_.frame(-1));
  }
}

TEST_F(TextScrollerStripTest, LongStringsAndManyItems) {
  std::string huge;
  while (huge.size() < 200000) {
    huge += "A string of a few hundred thousand characters. ";
  }
  driver_.set("inputStrings", stringArray({huge}));
  driver_.set("inputSpeed", Value(5000.0));
  for (int frame = 0; frame < 5; ++frame) {
    EXPECT_TRUE(driver_.frame(frame * 0.02));
  }
  EXPECT_TRUE(std::isfinite(scrollerOf(driver_).totalWidth()));
  EXPECT_GT(scrollerOf(driver_).totalWidth(), 0);

  std::vector<std::string> items;
  for (int i = 0; i < 10000; ++i) {
    items.push_back("Item " + std::to_string(i));
  }
  driver_.set("inputStrings", stringArray(items));
  driver_.set("inputSecondaryStrings", Value());
  ASSERT_TRUE(driver_.frame(1));
  EXPECT_EQ(scrollerOf(driver_).strings().size(), 19999u);
}

TEST(TextScrollerStringTest, PiecesStayOnOneLine) {
  // With kerning, text laid out in a container of its measured width breaks its line.
  for (const double kerning : {0.0, 0.1, 2.0}) {
    TextAttributes style;
    style.font.pointSize = 40;
    style.kerning = kerning;
    auto piece =
        TextScrollerString::textScrollerStringWithString(AttributedString::fromUtf8("WWWWW end", style));
    // A line broken at its space would show "end" below the first line, at the piece's start.
    auto tile = Bitmap::allocate(200, 200, 800);
    EXPECT_EQ(piece->drawInRect(*tile, TextRect{0, 0, 200, 200}, 0, 0, 200, true), piece->width());
    int inked = 0;
    for (int y = 0; y < 200; ++y) {
      for (int x = 0; x < 200; ++x) {
        if (tile->row(y)[x * 4 + 3] != 0) {
          ASSERT_LT(y, piece->height()) << "a second line with kerning " << kerning;
          ++inked;
        }
      }
    }
    EXPECT_GT(inked, 100);
  }
}

}  // namespace
}  // namespace qva
