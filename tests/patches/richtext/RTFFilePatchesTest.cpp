#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "foundation/image/Bitmap.h"
#include "foundation/rtf/RTFStringExtensions.h"
#include "framework/Structure.h"
#include "patches/richtext/InkBounds.h"
#include "patches/richtext/RTF_File_ReaderPlugIn.h"
#include "patches/richtext/RTF_File_to_ImagePlugIn.h"
#include "support/PatchDriver.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

// The project's font configuration, also when the executable runs outside CTest.
const bool kProjectFonts = setenv("FONTCONFIG_FILE", QVA_SOURCE_DIR "/data/fonts/fonts.conf", 0) == 0;

using X = RTFStringExtensions;

void writeFile(const std::filesystem::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

// Drives one of the file patches with a host log of its own and a composition saved in a temporary folder.
class FilePatchTest : public testing::Test {
 protected:
  explicit FilePatchTest(std::unique_ptr<Patch> patch)
      : folder_("richtext-files"), driver_(std::move(patch)) {
    driver_.patch().setHostLog([this](const std::string& line) { hostLog_.push_back(line); });
    driver_.context().setCompositionPath((folder_ / "show.qvc").string());
  }

  bool frame() { return driver_.frame(time_++); }

  // Writes a file beside the composition and points the patch at it by its relative name.
  void open(const std::string& name, const std::string& bytes) {
    writeFile(folder_ / name, bytes);
    driver_.set("inputPath", name);
  }

  TemporaryFolder folder_;
  PatchDriver driver_;
  std::vector<std::string> hostLog_;
  double time_ = 0;
};

class RTFFileReaderTest : public FilePatchTest {
 protected:
  RTFFileReaderTest() : FilePatchTest(std::make_unique<RTF_File_ReaderPlugIn>()) {}

  // The output lines read back as attributed text; none when the output is none.
  std::optional<std::vector<AttributedString>> lines() {
    EXPECT_TRUE(frame());
    const StructureRef structure = driver_.output("outputLines").structureValue();
    if (!structure) {
      return std::nullopt;
    }
    std::vector<AttributedString> result;
    for (std::size_t i = 0; i < structure->size(); ++i) {
      auto line = X::RTFString(structure->at(i).stringValue());
      EXPECT_TRUE(line) << structure->at(i).stringValue();
      result.push_back(line.value_or(AttributedString()));
    }
    return result;
  }

  std::vector<std::string> texts() {
    std::vector<std::string> result;
    for (const AttributedString& line : lines().value_or(std::vector<AttributedString>{})) {
      result.push_back(line.utf8());
    }
    return result;
  }
};

TEST_F(RTFFileReaderTest, TheClassAndItsPortOrderWithTheEmptyKey) {
  const PatchClass& c = RTF_File_ReaderPlugIn::patchClass();
  EXPECT_EQ(c.name, "RTF File Reader");
  EXPECT_EQ(c.executionMode, ExecutionMode::Provider);
  EXPECT_EQ(c.timeMode, TimeMode::Idle);
  EXPECT_EQ(c.sortedPropertyPortKeys, (std::vector<std::string>{"inputPath", "inputSeparator", ""}));
  ASSERT_EQ(driver_.patch().outputPorts().size(), 1u);
  EXPECT_EQ(driver_.patch().outputPorts()[0].description.key, "outputLines");
}

TEST_F(RTFFileReaderTest, SplitsAtLineFeedsOrTheSeparatorKeepingFormatting) {
  open("news.rtf",
       "{\\rtf1{\\fonttbl\\f0 Helvetica;\\f1 Courier;}{\\colortbl;\\red255\\green0\\blue0;}"
       "\\f0 first {\\b bold}\\par\\f1\\cf1 second, part\\par\\par third}");
  auto read = lines();
  ASSERT_TRUE(read);
  ASSERT_EQ(read->size(), 3u);
  EXPECT_EQ((*read)[0].utf8(), "first bold");
  EXPECT_TRUE((*read)[0].attributesAt(6).font.bold);
  EXPECT_EQ((*read)[1].attributesAt(0).font.family, "Courier");
  EXPECT_EQ((*read)[1].attributesAt(0).foregroundColor, (Color{1, 0, 0, 1}));
  // The empty line between two separators gives no line.
  EXPECT_EQ((*read)[2].utf8(), "third");

  driver_.set("inputSeparator", ", ");
  EXPECT_EQ(texts(), (std::vector<std::string>{"first bold\nsecond", "part\n\nthird"}));
  driver_.set("inputSeparator", "\n\n");
  EXPECT_EQ(texts(), (std::vector<std::string>{"first bold\nsecond, part", "third"}));
}

TEST_F(RTFFileReaderTest, EachPieceIsSearchedFromOneCharacterAfterThePreviousStart) {
  // "bc" also occurs inside "abc" one character after its start, so the second line is taken from there,
  // bold, and not from the plain "bc" after the separator.
  writeFile(folder_ / "overlap.rtf", "{\\rtf1{\\fonttbl\\f0 Helvetica;}\\f0{\\b abc}\\par bc\\par xbc}");
  driver_.set("inputPath", (folder_ / "overlap.rtf").string());
  auto read = lines();
  ASSERT_TRUE(read);
  ASSERT_EQ(read->size(), 3u);
  EXPECT_EQ((*read)[1].utf8(), "bc");
  EXPECT_TRUE((*read)[1].attributesAt(0).font.bold);
  EXPECT_EQ((*read)[2].utf8(), "xbc");

  const AttributedString document = AttributedString::fromUtf8("aa,a,,a");
  std::vector<std::string> pieces;
  for (const AttributedString& line : RTF_File_ReaderPlugIn::lines(document, u",")) {
    pieces.push_back(line.utf8());
  }
  EXPECT_EQ(pieces, (std::vector<std::string>{"aa", "a", "a"}));
}

TEST_F(RTFFileReaderTest, MissingInvalidAndVanishingFilesGiveNoLinesAndOneLogLine) {
  EXPECT_FALSE(lines());
  EXPECT_TRUE(hostLog_.empty());

  driver_.set("inputPath", "missing.rtf");
  EXPECT_FALSE(lines());
  EXPECT_FALSE(lines());
  ASSERT_EQ(hostLog_.size(), 1u);
  EXPECT_NE(hostLog_[0].find("missing.rtf"), std::string::npos);

  open("plain.txt", "just text");
  EXPECT_FALSE(lines());
  EXPECT_EQ(hostLog_.size(), 2u);

  std::filesystem::create_directory(folder_ / "folder.rtf");
  driver_.set("inputPath", "folder.rtf");
  EXPECT_FALSE(lines());
  // A FIFO without a writer is refused, not waited on.
  ASSERT_EQ(::mkfifo((folder_ / "pipe.rtf").c_str(), 0600), 0);
  driver_.set("inputPath", "pipe.rtf");
  EXPECT_FALSE(lines());

  // Read again at every execution: a file that appears is read, one that vanishes is gone.
  driver_.set("inputPath", "later.rtf");
  EXPECT_FALSE(lines());
  writeFile(folder_ / "later.rtf", "{\\rtf1 now here}");
  EXPECT_EQ(texts(), std::vector<std::string>{"now here"});
  std::filesystem::remove(folder_ / "later.rtf");
  EXPECT_FALSE(lines());
  writeFile(folder_ / "later.rtf", "{\\rtf1 ");
  EXPECT_FALSE(lines());
}

class RTFFileToImageTest : public FilePatchTest {
 protected:
  RTFFileToImageTest() : FilePatchTest(std::make_unique<RTF_File_to_ImagePlugIn>()) {}

  ImageRef image() {
    EXPECT_TRUE(frame());
    return driver_.output("outputImage").imageValue();
  }

  std::optional<InkBounds> ink(const ImageRef& image) { return InkBounds::of(image->pixelBuffer().value()); }
};

TEST_F(RTFFileToImageTest, TheClassAndItsPorts) {
  const PatchClass& c = RTF_File_to_ImagePlugIn::patchClass();
  EXPECT_EQ(c.name, "RTF File to Image");
  EXPECT_EQ(c.executionMode, ExecutionMode::Provider);
  EXPECT_EQ(c.timeMode, TimeMode::None);
  EXPECT_EQ(portKeys(driver_.patch().inputPorts()),
            (std::vector<std::string>{"inputUpdateSignal", "inputPath", "inputWidth", "inputHeight"}));
}

TEST_F(RTFFileToImageTest, DrawsTheDocumentFromTheTopAtThePortsSize) {
  open("doc.rtf", "{\\rtf1{\\fonttbl\\f0 Helvetica;}\\f0\\fs48 Headline\\par\\fs24 Body text}");
  const ImageRef first = image();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->width(), 400);
  EXPECT_EQ(first->height(), 400);
  const PixelBufferView pixels = first->pixelBuffer().value();
  EXPECT_EQ(pixels.rowBytes, Bitmap::paddedRowBytes(400));
  const InkBounds bounds = ink(first).value();
  EXPECT_LT(bounds.top, 10);
  EXPECT_LT(bounds.left, 5);
  EXPECT_GT(bounds.height(), 30);
  EXPECT_LT(bounds.bottom, 80);
  // Nothing changed: the image stays the same object.
  EXPECT_EQ(image(), first);
}

TEST_F(RTFFileToImageTest, OnlyTheWidthRedrawsAtOnceForTheHeightsKeyIsMisspelt) {
  open("doc.rtf", "{\\rtf1 Some text}");
  ASSERT_TRUE(image());
  driver_.set("inputHeight", 120u);
  EXPECT_EQ(image()->height(), 400);
  driver_.set("inputWidth", 300u);
  const ImageRef redrawn = image();
  EXPECT_EQ(redrawn->width(), 300);
  EXPECT_EQ(redrawn->height(), 120);
  EXPECT_EQ(redrawn->pixelBuffer()->rowBytes, Bitmap::paddedRowBytes(300));
}

TEST_F(RTFFileToImageTest, ARisingUpdateSignalOrANewPathLoadsAgain) {
  open("doc.rtf", "{\\rtf1\\fs24 short}");
  const int shortWidth = ink(image())->width();
  writeFile(folder_ / "doc.rtf", "{\\rtf1\\fs24 a much longer line}");
  driver_.set("inputWidth", 401u);
  EXPECT_EQ(ink(image())->width(), shortWidth) << "a new width draws the loaded document";
  driver_.set("inputUpdateSignal", true);
  const int longWidth = ink(image())->width();
  EXPECT_GT(longWidth, shortWidth * 2);
  // A signal that stays true loads nothing more.
  writeFile(folder_ / "doc.rtf", "{\\rtf1\\fs24 x}");
  driver_.set("inputWidth", 402u);
  EXPECT_EQ(ink(image())->width(), longWidth);
  driver_.set("inputUpdateSignal", false);
  EXPECT_EQ(ink(image())->width(), longWidth);
  driver_.set("inputPath", (folder_ / "doc.rtf").string());
  EXPECT_LT(ink(image())->width(), shortWidth);
}

TEST_F(RTFFileToImageTest, PlainTextAndHtmlAreReadAndOtherFormatsAreNamedInTheLog) {
  open("notes.txt", "plain \xC3\xA9t\xC3\xA9 text");
  EXPECT_TRUE(ink(image()));
  open("page.html", "<html><body><h1>Title</h1><p>Para <b>bold</b></p></body></html>");
  const InkBounds html = ink(image()).value();
  EXPECT_GT(html.height(), 30);

  for (const char* name : {"letter.docx", "letter.odt", "letter.doc"}) {
    open(name, "PK\x03\x04 zipped");
    EXPECT_FALSE(image()) << name;
  }
  ASSERT_EQ(hostLog_.size(), 3u);
  EXPECT_NE(hostLog_[0].find("Word 2007"), std::string::npos) << hostLog_[0];
  EXPECT_NE(hostLog_[1].find("Open Document"), std::string::npos) << hostLog_[1];
  EXPECT_NE(hostLog_[2].find("Word 97"), std::string::npos) << hostLog_[2];
  std::filesystem::create_directory(folder_ / "bundle.rtfd");
  driver_.set("inputPath", "bundle.rtfd");
  EXPECT_FALSE(image());
  EXPECT_NE(hostLog_.back().find("RTF with Attachments"), std::string::npos) << hostLog_.back();
}

TEST_F(RTFFileToImageTest, MissingBrokenAndVanishingFiles) {
  EXPECT_FALSE(image());
  EXPECT_TRUE(hostLog_.empty()) << "no path, no complaint";
  driver_.set("inputPath", "missing.rtf");
  EXPECT_FALSE(image());
  EXPECT_FALSE(image());
  EXPECT_EQ(hostLog_.size(), 1u) << "a failure that lasts is logged once";
  open("broken.rtf", "{\\rtf1 {unbalanced");
  EXPECT_FALSE(image());
  std::filesystem::create_directory(folder_ / "folder");
  driver_.set("inputPath", "folder");
  EXPECT_FALSE(image());
  open("binary.bin", std::string("\x89PNG\r\n\x1a\n\0\0\0", 11));
  EXPECT_FALSE(image());
  ASSERT_EQ(::mkfifo((folder_ / "pipe.txt").c_str(), 0600), 0);
  driver_.set("inputPath", "pipe.txt");
  EXPECT_FALSE(image());
  // A file too large to read whole (sparse, so the test writes nothing) is refused before reading.
  writeFile(folder_ / "huge.txt", "");
  std::filesystem::resize_file(folder_ / "huge.txt", std::uintmax_t{1} << 30);
  driver_.set("inputPath", "huge.txt");
  EXPECT_FALSE(image());
  EXPECT_NE(hostLog_.back().find("huge.txt"), std::string::npos) << hostLog_.back();

  // A document that vanishes after loading is still drawn at a new width; a reload then finds nothing.
  open("doc.rtf", "{\\rtf1 here}");
  ASSERT_TRUE(image());
  std::filesystem::remove(folder_ / "doc.rtf");
  driver_.set("inputWidth", 200u);
  ASSERT_TRUE(image());
  driver_.set("inputUpdateSignal", true);
  EXPECT_FALSE(image());
}

TEST_F(RTFFileToImageTest, SizesThatCannotBeHadGiveNoImage) {
  open("doc.rtf", "{\\rtf1 text}");
  driver_.set("inputWidth", 100000u);
  driver_.set("inputHeight", 100000u);
  EXPECT_FALSE(image());
  EXPECT_NE(driver_.processLog().back().find("no image"), std::string::npos);
  driver_.set("inputWidth", 0u);
  const ImageRef empty = image();
  ASSERT_TRUE(empty);
  EXPECT_EQ(empty->width(), 0);
}

}  // namespace
}  // namespace qva
