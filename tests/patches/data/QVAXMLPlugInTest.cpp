#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "patches/data/QVAXMLPlugIn.h"
#include "support/DriveScript.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

constexpr const char* kFeed =
    "<rss><channel><title>Desk</title><item><title>First</title></item>between<item><title>Second</title>"
    "</item></channel></rss>";

std::vector<PropertyList> drive(PropertyList script) {
  static const PatchRegistry registry = [] {
    PatchRegistry r;
    r.add(QVAXMLPlugIn::patchClass());
    return r;
  }();
  if (!script.contains("patches")) {
    script["class"] = "QVAXMLPlugIn";
  }
  return driveScript(script, registry);
}

using Keys = std::vector<std::string>;

TEST(QVAXMLPlugIn, SettingsRebuildTheQueryGroupsInTheirOrder) {
  const auto lines = drive(PropertyList::parse(R"({"steps": [
      {"op": "ports"},
      {"op": "settings", "settings": {"xPathCount": 2, "showXML": true}}, {"op": "ports"},
      {"op": "settings", "settings": {"hideOutputCounts": true}}, {"op": "ports"},
      {"op": "settings", "settings": {"xPathCount": 1, "xmlInputMode": 1, "xmlOutputMode": 2}}, {"op": "ports"},
      {"op": "serialize"}, {"op": "attributes"}]})"));
  EXPECT_EQ(listedPortKeys(lines[0]["inputs"]), (Keys{"inputURL", "inputUpdate"}));
  EXPECT_EQ(listedPortKeys(lines[0]["outputs"]), (Keys{"outputDone"}));
  EXPECT_EQ(listedPortKeys(lines[2]["inputs"]), (Keys{"inputURL", "inputUpdate", "xPath0", "xPath1"}));
  EXPECT_EQ(listedPortKeys(lines[2]["outputs"]),
            (Keys{"outputDone", "result0", "resultCount0", "result1", "resultCount1", "outputXML"}));
  EXPECT_EQ(lines[2]["inputs"][3]["attributes"],
            PropertyList::parse(R"({"name": "XPath 2", "default": "/rss/channel/title"})"));
  EXPECT_EQ(lines[2]["outputs"][4]["attributes"]["name"], "Result Count 2");
  EXPECT_EQ(listedPortKeys(lines[4]["outputs"]), (Keys{"outputDone", "outputXML", "result0", "result1"}));
  EXPECT_EQ(listedPortKeys(lines[6]["inputs"]), (Keys{"inputXMLString", "xPath0"}))
      << "the new output mode re-adds the group";
  EXPECT_EQ(listedPortKeys(lines[6]["outputs"]), (Keys{"outputXML", "result0"}));
  EXPECT_EQ(lines[6]["outputs"][1]["type"], "String");
  EXPECT_EQ(lines[7]["settings"],
            PropertyList::parse(R"({"savedVersion": 0, "xPathCount": 1, "xmlInputMode": 1,
      "xmlOutputMode": 2, "showXML": true, "disableGlobalCache": false, "reloadOnModified": false,
      "hideOutputCounts": true})"));
  EXPECT_EQ(lines[8]["name"], "QVA XML");
  EXPECT_EQ(lines[8]["executionMode"], 1);
  EXPECT_EQ(lines[8]["timeMode"], 2);
}

TEST(QVAXMLPlugIn, FourOutputModesRenderTheNodesOfEachQuery) {
  PropertyList script = PropertyList::parse(R"js({"settings": {"xmlInputMode": 1, "xPathCount": 2}, "steps": [
      {"time": 0, "inputs": {"xPath0": "/rss/channel/item | /rss/channel/text()", "xPath1": "//nothing"}},
      {"op": "settings", "settings": {"xmlOutputMode": 1}},
      {"time": 1, "inputs": {"xPath0": "//item/title"}},
      {"op": "settings", "settings": {"xmlOutputMode": 2}},
      {"time": 2, "inputs": {"xPath0": "//item/title", "xPath1": "//title"}},
      {"op": "settings", "settings": {"xmlOutputMode": 3}},
      {"time": 3, "inputs": {"xPath0": "//item/title"}},
      {"time": 4, "inputs": {"xPath1": "//item[", "inputXMLString": ""}}]})js");
  script["steps"][0]["inputs"]["inputXMLString"] = kFeed;
  const auto lines = drive(script);
  const PropertyList& structure = lines[0]["outputs"];
  EXPECT_EQ(structure["result0"], PropertyList::parse(R"({"item:0": "<item><title>First</title></item>",
      "root:0": "between", "item:1": "<item><title>Second</title></item>"})"));
  EXPECT_EQ(structure["resultCount0"], 3);
  EXPECT_EQ(structure["resultCount1"], 0);

  const PropertyList& wrapped = lines[2]["outputs"];
  EXPECT_EQ(
      wrapped["result0"],
      "<?xml version=\"1.0\" encoding=\"utf-8\"?><root><title>First</title><title>Second</title></root>");
  EXPECT_EQ(wrapped["result1"], "<?xml version=\"1.0\" encoding=\"utf-8\"?><root><title>Desk</title></root>")
      << "a new output mode puts every query back to its default and runs it";

  EXPECT_EQ(lines[4]["outputs"]["result0"], "FirstSecond");
  EXPECT_EQ(lines[4]["outputs"]["result1"], "DeskFirstSecond");
  EXPECT_EQ(lines[6]["outputs"]["result0"],
            PropertyList::parse(R"({"string:0": "First", "string:1": "Second"})"));

  // An empty string is no document: nothing out, counts 0; a broken query is logged.
  EXPECT_TRUE(lines[7]["outputs"]["result0"].is_null());
  EXPECT_EQ(lines[7]["outputs"]["resultCount0"], 0);

  PropertyList bad =
      PropertyList::parse(R"({"settings": {"xmlInputMode": 1, "xPathCount": 1, "xmlOutputMode": 1},
      "steps": [{"time": 0, "inputs": {"xPath0": "//item["}}, {"time": 1, "inputs": {"xPath0": "//none"}},
      {"time": 2, "inputs": {"xPath0": "", "inputXMLString": "<rss><unclosed></rss>"}}]})");
  const auto badLines = drive(bad);
  ASSERT_EQ(badLines[0]["log"].size(), 1u);
  EXPECT_EQ(badLines[0]["log"][0].get<std::string>().rfind("Error executing XPath: ", 0), 0u);
  EXPECT_EQ(badLines[0]["outputs"]["result0"], "");
  EXPECT_EQ(badLines[0]["outputs"]["resultCount0"], 0);
  EXPECT_EQ(badLines[1]["outputs"]["result0"], "") << "no nodes give no root element";
  EXPECT_TRUE(badLines[2]["outputs"]["result0"].is_null());
  EXPECT_TRUE(badLines[2]["log"].empty()) << "an unparsable string is no document, silently";
}

TEST(QVAXMLPlugIn, KeysCountUpPerName) {
  Structure structure;
  EXPECT_EQ(QVAXMLPlugIn::keyForName("item", structure), "item:0");
  structure.set("item:0", Value(1.0));
  structure.set("item:2", Value(1.0));
  EXPECT_EQ(QVAXMLPlugIn::keyForName("item", structure), "item:1");
  EXPECT_EQ(QVAXMLPlugIn::keyForName(std::nullopt, structure), "root:0");
}

TEST(QVAXMLPlugIn, URLsResolveAgainstTheComposition) {
  EXPECT_EQ(QVAXMLPlugIn::resolvedURL("feeds/a.xml", "/Shows/My Show/main.qtz"),
            "file:///Shows/My%20Show/feeds/a.xml");
  EXPECT_EQ(QVAXMLPlugIn::resolvedURL("/feeds/a.xml", std::nullopt), "file:///feeds/a.xml");
  EXPECT_EQ(QVAXMLPlugIn::resolvedURL("http://127.0.0.1:9/a.xml", std::nullopt), "http://127.0.0.1:9/a.xml");
  EXPECT_EQ(QVAXMLPlugIn::resolvedURL("feeds/a.xml", std::nullopt), std::nullopt);
  EXPECT_EQ(QVAXMLPlugIn::resolvedURL("a.xml", "shows/main.qvc"),
            "file://" + (std::filesystem::current_path() / "shows" / "a.xml").string());
}

class XmlFeedTest : public ::testing::Test {
 protected:
  XmlFeedTest() : folder_("xml-patch") {
    std::filesystem::create_directories(folder_ / "My Show");
    write(kFeed);
  }
  void write(const std::string& text) { std::ofstream(folder_ / "My Show" / "my feed.xml") << text; }
  std::string path() const { return (folder_ / "My Show" / "my feed.xml").string(); }
  std::string composition() const { return (folder_ / "My Show" / "main.qvc").string(); }

  TemporaryFolder folder_;
};

TEST_F(XmlFeedTest, AFeedNextToTheCompositionLoadsInTheBackground) {
  PropertyList script = PropertyList::parse(R"({"settings": {"xPathCount": 1, "xmlOutputMode": 2}, "steps": [
      {"time": 0, "inputs": {"inputURL": "my feed.xml", "xPath0": "//item/title"}},
      {"op": "wait", "seconds": 5, "until": "delivery"}, {"time": 1},
      {"time": 2, "inputs": {"inputURL": "missing.xml"}}, {"op": "wait", "seconds": 5, "until": "delivery"},
      {"time": 3}, {"time": 4, "inputs": {"inputURL": ""}}]})");
  script["context"]["compositionPath"] = composition();
  const auto lines = drive(script);
  EXPECT_EQ(lines[0]["outputs"]["outputDone"], false);
  EXPECT_EQ(lines[1]["delivered"], true);
  EXPECT_EQ(lines[2]["outputs"], PropertyList::parse(R"({"outputDone": true, "result0": "FirstSecond",
      "resultCount0": 2})"));
  EXPECT_EQ(lines[4]["delivered"], true);
  ASSERT_EQ(lines[4]["processLog"].size(), 1u);
  EXPECT_NE(lines[4]["processLog"][0].get<std::string>().find("error while downloading XML from URL"),
            std::string::npos);
  EXPECT_EQ(lines[5]["outputs"], PropertyList::parse(R"({"outputDone": false, "result0": null,
      "resultCount0": 0})"));

  // Without a saved composition a relative path names nothing.
  const auto unsaved = drive(PropertyList::parse(R"({"settings": {"xPathCount": 1}, "steps": [
      {"time": 0, "inputs": {"inputURL": "my feed.xml"}}, {"op": "wait", "seconds": 0.3, "until": "delivery"},
      {"time": 1}]})"));
  EXPECT_EQ(unsaved[1]["delivered"], false);
  EXPECT_EQ(unsaved[2]["outputs"]["outputDone"], false);
}

TEST_F(XmlFeedTest, PatchesReadingOneURLShareItsLoad) {
  PropertyList script = PropertyList::parse(R"({"patches": [
      {"class": "QVAXMLPlugIn", "settings": {"xPathCount": 1, "xmlOutputMode": 2}},
      {"class": "QVAXMLPlugIn", "settings": {"xPathCount": 1, "xmlOutputMode": 2}},
      {"class": "QVAXMLPlugIn", "settings": {"xPathCount": 1, "xmlOutputMode": 2, "disableGlobalCache": true}}],
      "steps": [
      {"time": 0, "inputs": {"xPath0": "//item/title"}}, {"op": "wait", "seconds": 5, "until": "delivery"},
      {"time": 1},
      {"op": "fs", "action": "write", "text": "<rss><channel><item><title>Later</title></item></channel></rss>"},
      {"time": 1, "patch": 1, "inputs": {"xPath0": "//item/title"}},
      {"time": 1, "patch": 2, "inputs": {"xPath0": "//item/title"}},
      {"op": "wait", "seconds": 5, "until": "delivery"},
      {"time": 2, "patch": 1}, {"time": 2, "patch": 2}, {"op": "stop"}]})");
  for (const int step : {0, 4, 5}) {
    script["steps"][step]["inputs"]["inputURL"] = path();
  }
  script["steps"][3]["path"] = path();
  const auto lines = drive(script);
  EXPECT_EQ(lines[2]["patch"], 0);
  EXPECT_EQ(lines[2]["outputs"]["result0"], "FirstSecond");
  EXPECT_EQ(lines[7]["patch"], 1);
  EXPECT_EQ(lines[7]["outputs"]["result0"], "FirstSecond") << "the cached copy, loaded under ten seconds ago";
  EXPECT_EQ(lines[8]["outputs"]["result0"], "Later") << "a private document loads on its own";
}

TEST_F(XmlFeedTest, UpdateSignalsReloadOnceAndOnlyWhenTheFileChanged) {
  PropertyList script = PropertyList::parse(R"({"settings": {"xPathCount": 1, "xmlOutputMode": 2,
      "disableGlobalCache": true, "reloadOnModified": true}, "steps": [
      {"time": 0, "inputs": {"xPath0": "//item/title"}}, {"op": "wait", "seconds": 5, "until": "delivery"},
      {"time": 1}, {"op": "fs", "action": "write", "text": "<rss><item><title>New</title></item></rss>"},
      {"op": "fs", "action": "touch", "mtime": 1000000000},
      {"time": 2, "inputs": {"inputUpdate": true}}, {"op": "wait", "seconds": 0.3, "until": "delivery"},
      {"time": 3}, {"op": "fs", "action": "touch", "mtime": 2000000000},
      {"time": 4}, {"op": "wait", "seconds": 0.3, "until": "delivery"},
      {"time": 5, "inputs": {"inputUpdate": false}}, {"time": 6, "inputs": {"inputUpdate": true}},
      {"op": "wait", "seconds": 5, "until": "delivery"}, {"time": 7}]})");
  std::filesystem::last_write_time(path(), std::filesystem::file_time_type::clock::now());
  script["steps"][0]["inputs"]["inputURL"] = path();
  for (const int step : {3, 4, 8}) {
    script["steps"][step]["path"] = path();
  }
  // The first load sees a file dated in 2001, so that only a later date counts as a change.
  PropertyList touchFirst = PropertyList::parse(R"({"op": "fs", "action": "touch", "mtime": 1000000000})");
  touchFirst["path"] = path();
  script["steps"].insert(script["steps"].begin(), touchFirst);
  const auto lines = drive(script);
  EXPECT_EQ(lines[3]["outputs"]["result0"], "FirstSecond");
  EXPECT_EQ(lines[7]["delivered"], false) << "same modification date: no reload";
  EXPECT_EQ(lines[8]["outputs"]["result0"], "FirstSecond");
  EXPECT_EQ(lines[11]["delivered"], false) << "a signal that stays on counts once";
  EXPECT_EQ(lines[14]["delivered"], true);
  EXPECT_EQ(lines[15]["outputs"]["result0"], "New");
}

TEST(QVAXMLPlugInSecurity, StringsNamingLocalFilesOrTheNetworkLoadNothing) {
  PropertyList script = PropertyList::parse(R"({"settings": {"xmlInputMode": 1, "xPathCount": 1,
      "xmlOutputMode": 2, "showXML": true}, "steps": []})");
  for (const char* attack : {"<!DOCTYPE r [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><r>&x;</r>",
                             "<!DOCTYPE r [<!ENTITY x SYSTEM \"http://127.0.0.1:9/x\">]><r>&x;</r>",
                             "<!DOCTYPE r SYSTEM \"file:///etc/passwd\"><r>&x;</r>"}) {
    PropertyList step = PropertyList::parse(R"({"time": 0, "inputs": {"xPath0": "/r"}})");
    step["inputs"]["inputXMLString"] = attack;
    script["steps"].push_back(step);
  }
  for (const PropertyList& line : drive(script)) {
    EXPECT_EQ(line["outputs"].dump().find("root:"), std::string::npos) << line.dump();
  }
}

TEST(QVAXMLPlugInCorpus, FeedsGiveTheirItemTitles) {
  const std::filesystem::path corpus = std::filesystem::path(QVA_CORPUS_DIR) / "xml";
  if (!std::filesystem::is_directory(corpus)) {
    GTEST_SKIP() << "no corpus at " << corpus;
  }
  PropertyList script = PropertyList::parse(R"({"patches": [], "steps": []})");
  std::size_t feeds = 0;
  for (const auto& entry : std::filesystem::directory_iterator(corpus)) {
    if (entry.path().extension() != ".rss" &&
        entry.path().filename().string().find("rss_2.0") == std::string::npos) {
      continue;
    }
    script["patches"].push_back(
        PropertyList::parse(R"({"class": "QVAXMLPlugIn", "settings": {"xPathCount": 1}})"));
    PropertyList step =
        PropertyList::parse(R"({"time": 0, "inputs": {"xPath0": "/rss/channel/item/title"}})");
    step["patch"] = feeds++;
    step["inputs"]["inputURL"] = entry.path().string();
    script["steps"].push_back(step);
  }
  if (feeds == 0) {
    GTEST_SKIP() << "no RSS feeds in " << corpus;
  }
  script["steps"].push_back(PropertyList::parse(R"({"op": "wait", "seconds": 2})"));
  for (std::size_t patch = 0; patch < feeds; ++patch) {
    script["steps"].push_back({{"time", 1}, {"patch", patch}});
  }
  const auto lines = drive(script);
  for (std::size_t patch = 0; patch < feeds; ++patch) {
    const PropertyList& outputs = lines[feeds + 1 + patch]["outputs"];
    EXPECT_EQ(outputs["outputDone"], true) << script["steps"][patch]["inputs"]["inputURL"];
    EXPECT_GT(outputs["resultCount0"], 0) << script["steps"][patch]["inputs"]["inputURL"];
  }
}

}  // namespace
}  // namespace qva
