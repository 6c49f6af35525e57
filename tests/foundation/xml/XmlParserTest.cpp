#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

#include "foundation/xml/XmlParser.h"
#include "foundation/xml/XmlSource.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

std::string textOf(const XmlDocumentRef& document) {
  return XmlParser::nodeText(xmlDocGetRootElement(document.get()));
}

TEST(XmlParser, ParsesFeedsAndNamesWhatIsWrongWithMalformedOnes) {
  std::string error;
  const XmlDocumentRef feed = XmlParser::parse("<rss><channel><title>News</title></channel></rss>", error);
  ASSERT_NE(feed, nullptr);
  EXPECT_EQ(textOf(feed), "News");
  EXPECT_EQ(XmlParser::nodeXml(xmlDocGetRootElement(feed.get())),
            "<rss><channel><title>News</title></channel></rss>");

  for (const char* bad :
       {"", "<rss><channel></rss>", "<a>&undefined;</a>", "not xml at all", "<a b='1' b='2'/>"}) {
    error.clear();
    EXPECT_EQ(XmlParser::parse(bad, error), nullptr) << bad;
    EXPECT_FALSE(error.empty()) << bad;
  }
}

TEST(XmlParser, EntityExpansionStaysWithinItsBudget) {
  std::string laughs = "<?xml version=\"1.0\"?><!DOCTYPE lolz [<!ENTITY lol0 \"lol\">";
  for (int level = 1; level <= 9; ++level) {
    laughs += "<!ENTITY lol" + std::to_string(level) + " \"";
    for (int copy = 0; copy < 10; ++copy) {
      laughs += "&lol" + std::to_string(level - 1) + ";";
    }
    laughs += "\">";
  }
  laughs += "]><lolz>&lol9;</lolz>";
  const auto start = std::chrono::steady_clock::now();
  std::string error;
  const XmlDocumentRef document = XmlParser::parse(laughs, error);
  if (document) {
    // Whatever the library kept, reading the document's text must stay small.
    EXPECT_LE(textOf(document).size(), XmlParser::kMaximumEntityExpansion);
  } else {
    EXPECT_FALSE(error.empty());
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));

  // One large entity referenced many times (quadratic growth) is refused as well.
  std::string quadratic = "<!DOCTYPE q [<!ENTITY big \"" + std::string(100000, 'x') + "\">]><q>";
  for (int copy = 0; copy < 200; ++copy) {
    quadratic += "&big;";
  }
  error.clear();
  EXPECT_EQ(XmlParser::parse(quadratic + "</q>", error), nullptr);
  EXPECT_NE(error.find("expand"), std::string::npos) << error;

  // A few small entities are ordinary XML.
  error.clear();
  const XmlDocumentRef small =
      XmlParser::parse("<!DOCTYPE s [<!ENTITY co \"QVA\">]><s>&co; and &co;</s>", error);
  ASSERT_NE(small, nullptr) << error;
  EXPECT_EQ(textOf(small), "QVA and QVA");
}

TEST(XmlParser, NothingNamedInsideADocumentIsLoaded) {
  TemporaryFolder folder("xml-xxe");
  const auto secret = folder / "secret.txt";
  std::ofstream(secret) << "top secret";
  const std::string fileEntity =
      "<!DOCTYPE r [<!ENTITY x SYSTEM \"file://" + secret.string() + "\">]><r>&x;</r>";
  const std::string passwdEntity = "<!DOCTYPE r [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><r>&x;</r>";
  // Port 9 on the loopback interface refuses at once, should anything try it.
  const std::string httpEntity = "<!DOCTYPE r [<!ENTITY x SYSTEM \"http://127.0.0.1:9/x\">]><r>&x;</r>";
  const std::string externalDtd = "<!DOCTYPE r SYSTEM \"file://" + secret.string() + "\"><r>a</r>";
  const std::string parameterEntity =
      "<!DOCTYPE r [<!ENTITY % p SYSTEM \"file://" + secret.string() + "\"> %p;]><r>a</r>";
  for (const std::string& attack : {fileEntity, passwdEntity, httpEntity, externalDtd, parameterEntity}) {
    std::string error;
    const XmlDocumentRef document = XmlParser::parse(attack, error);
    if (document) {
      const std::string text = textOf(document) + XmlParser::documentXml(document.get());
      EXPECT_EQ(text.find("top secret"), std::string::npos) << attack;
      EXPECT_EQ(text.find("root:"), std::string::npos) << attack;
    }
  }
}

TEST(XmlSource, ReadsFileURLsAndRefusesWhatItCannotOrMustNotRead) {
  TemporaryFolder folder("xml-source");
  const auto feed = folder / "my feed.xml";
  std::ofstream(feed) << "<rss/>";
  std::string bytes;
  std::string error;
  const std::string url = "file://" + (folder / "my%20feed.xml").string();
  ASSERT_TRUE(XmlSource::fetch(url, bytes, error)) << error;
  EXPECT_EQ(bytes, "<rss/>");
  EXPECT_TRUE(XmlSource::modificationDate(url).has_value());
  EXPECT_FALSE(XmlSource::modificationDate("http://127.0.0.1:9/feed.xml").has_value());

  EXPECT_FALSE(XmlSource::fetch("file://" + (folder / "missing.xml").string(), bytes, error));
  EXPECT_NE(error.find("missing.xml"), std::string::npos);
  EXPECT_FALSE(XmlSource::modificationDate("file://" + (folder / "missing.xml").string()).has_value());
  EXPECT_FALSE(XmlSource::fetch("ftp://127.0.0.1/feed.xml", bytes, error));
  EXPECT_FALSE(XmlSource::fetch("gopher://127.0.0.1/", bytes, error));
  EXPECT_FALSE(XmlSource::fetch("http://127.0.0.1:9/feed.xml", bytes, error)) << "nothing listens on port 9";

  // A 50 MB feed is refused before it is read, and as text before it is parsed.
  const auto huge = folder / "huge.xml";
  std::ofstream(huge) << "<a>";
  std::filesystem::resize_file(huge, 50 * 1024 * 1024);
  error.clear();
  EXPECT_FALSE(XmlSource::fetch("file://" + huge.string(), bytes, error));
  EXPECT_NE(error.find("MB"), std::string::npos) << error;
  error.clear();
  EXPECT_EQ(XmlParser::parse(std::string(XmlParser::kMaximumDocumentBytes + 1, ' '), error), nullptr);
  EXPECT_NE(error.find("larger"), std::string::npos) << error;
}

TEST(XmlParser, CorpusFeedsParse) {
  const std::filesystem::path corpus = std::filesystem::path(QVA_CORPUS_DIR) / "xml";
  if (!std::filesystem::is_directory(corpus)) {
    GTEST_SKIP() << "no corpus at " << corpus;
  }
  int parsed = 0;
  for (const auto& entry : std::filesystem::directory_iterator(corpus)) {
    std::string bytes;
    std::string error;
    ASSERT_TRUE(XmlSource::fetch("file://" + entry.path().string(), bytes, error)) << error;
    const XmlDocumentRef document = XmlParser::parse(bytes, error);
    parsed += document != nullptr ? 1 : 0;
    if (document) {
      EXPECT_NE(xmlDocGetRootElement(document.get()), nullptr) << entry.path();
    }
  }
  EXPECT_GT(parsed, 0);
}

}  // namespace
}  // namespace qva
