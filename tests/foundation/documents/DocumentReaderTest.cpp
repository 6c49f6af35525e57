#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "foundation/documents/DocumentReader.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

using Format = DocumentReader::Format;

TEST(DocumentReaderTest, TheFormatFollowsTheNameOrElseTheFirstBytes) {
  EXPECT_EQ(DocumentReader::formatOf("anything", "a.RTF"), Format::RTF);
  EXPECT_EQ(DocumentReader::formatOf("anything", "a.htm"), Format::HTML);
  EXPECT_EQ(DocumentReader::formatOf("anything", "a.xhtml"), Format::HTML);
  EXPECT_EQ(DocumentReader::formatOf("{\\rtf1 x}", "a.txt"), Format::RTF);
  EXPECT_EQ(DocumentReader::formatOf("\xEF\xBB\xBF  <!DOCTYPE HTML><p>x", "page"), Format::HTML);
  EXPECT_EQ(DocumentReader::formatOf("<?xml version=\"1.0\"?>\n<html>", "page.xml"), Format::HTML);
  EXPECT_EQ(DocumentReader::formatOf("<p>a fragment is text</p>", "notes.txt"), Format::PlainText);
  EXPECT_EQ(DocumentReader::formatOf("", "empty"), Format::PlainText);
}

TEST(DocumentReaderTest, WordProcessorFormatsAreNamedAndRefused) {
  EXPECT_EQ(DocumentReader::unsupportedFormat("", "Letter.DOCX"), "Word 2007 (.docx)");
  EXPECT_EQ(DocumentReader::unsupportedFormat("", "letter.odt"), "Open Document (.odt)");
  EXPECT_EQ(DocumentReader::unsupportedFormat("", "x.rtfd"), "RTF with Attachments (.rtfd)");
  EXPECT_EQ(DocumentReader::unsupportedFormat("<?xml?><w:wordDocument>", "word.xml"), "Word 2003 XML (.xml)");
  EXPECT_EQ(DocumentReader::unsupportedFormat("<?xml?><data/>", "data.xml"), std::nullopt);
  EXPECT_EQ(DocumentReader::unsupportedFormat("\xD0\xCF\x11\xE0rest", "renamed.txt"), "Word 97 (.doc)");
  EXPECT_NE(DocumentReader::unsupportedFormat("PK\x03\x04", "renamed.rtf"), std::nullopt);
  EXPECT_EQ(DocumentReader::unsupportedFormat("{\\rtf1}", "a.rtf"), std::nullopt);

  const DocumentReader::Result refused = DocumentReader::read("PK\x03\x04", "letter.docx");
  EXPECT_FALSE(refused.text);
  EXPECT_NE(refused.failure.find("\"letter.docx\" is Word 2007 (.docx)"), std::string::npos)
      << refused.failure;
}

TEST(DocumentReaderTest, ReadsPlainTextRtfAndHtml) {
  auto plain = DocumentReader::read("caf\xE9\nline", "notes.txt");
  ASSERT_TRUE(plain.text);
  EXPECT_EQ(plain.text->utf8(), "caf\xC3\xA9\nline");
  EXPECT_EQ(plain.text->attributesAt(0), TextAttributes{});
  auto utf16 = DocumentReader::read(std::string("\xFF\xFEh\0i\0", 6), "wide.txt");
  ASSERT_TRUE(utf16.text);
  EXPECT_EQ(utf16.text->utf8(), "hi");

  auto rtf = DocumentReader::read("{\\rtf1{\\fonttbl\\f0 Courier;}\\f0\\b styled}", "doc.rtf");
  ASSERT_TRUE(rtf.text);
  EXPECT_TRUE(rtf.text->attributesAt(0).font.bold);
  auto html = DocumentReader::read("<html><body><p>a <i>b</i></p></body></html>", "page.html");
  ASSERT_TRUE(html.text);
  EXPECT_EQ(html.text->utf8(), "a b");
  EXPECT_TRUE(html.text->attributesAt(2).font.italic);
  EXPECT_TRUE(DocumentReader::read("", "empty.txt").text);
}

TEST(DocumentReaderTest, BrokenBinaryAndMissingDocumentsSayWhy) {
  auto broken = DocumentReader::read("{\\rtf1 {never closed", "broken.rtf");
  EXPECT_FALSE(broken.text);
  EXPECT_NE(broken.failure.find("no valid RTF"), std::string::npos) << broken.failure;
  auto binary = DocumentReader::read(std::string("\x89PNG\0\0", 6), "image.png");
  EXPECT_FALSE(binary.text);
  EXPECT_FALSE(binary.failure.empty());

  TemporaryFolder folder("documents");
  auto missing = DocumentReader::readFile((folder / "missing.txt").string());
  EXPECT_FALSE(missing.text);
  EXPECT_NE(missing.failure.find("missing.txt"), std::string::npos);
  EXPECT_FALSE(DocumentReader::readFile(folder.path().string()).text);
  std::ofstream(folder / "here.html") << "<b>bold</b>";
  auto here = DocumentReader::readFile((folder / "here.html").string());
  ASSERT_TRUE(here.text) << here.failure;
  EXPECT_TRUE(here.text->attributesAt(0).font.bold);
}

}  // namespace
}  // namespace qva
