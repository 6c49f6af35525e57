// Real documents from other writers. The expected values come from outside this reader: layer
// geometry and opacity as another image tool reports them for each layer, and names, groups and hidden
// layers as the corpus catalogue lists them.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "foundation/psd/PsdReader.h"

namespace qva {
namespace {

// The canvas and the counts of layer records and groups.
struct Outline {
  int width;
  int height;
  std::size_t layerCount;
  std::size_t groupCount;
};

struct CorpusDocument {
  std::string file;
  Outline outline;
  // Layers with pixels, bottom up, as "name WxH+X+Y", or only the geometry where the catalogue does not say
  // which name belongs to which layer; empty where the other tool cannot read the document.
  std::vector<std::string> pixelLayers;
  std::set<std::string> hidden;
  std::map<std::string, int> opacityPercent;
};

void PrintTo(const CorpusDocument& document, std::ostream* out) {
  *out << document.file;
}

const std::vector<CorpusDocument>& corpus() {
  static const std::vector<CorpusDocument> documents = {
      {"agpsd-read-groups-src.psd",
       {300, 200, 5, 2},
       {"Layer 0 243x200+36+0", "Layer 3 273x185+0+15", "Layer 1 244x157+24+11"},
       {"Group 2"},
       {{"Group 2", 50}}},
      {"agpsd-read-round-src.psd",
       {200, 200, 2, 0},
       {"背景 200x200+0+0", "椭圆 1 168x168+16+22"},
       {"背景"},
       {}},
      {"agpsd-read-text-bug-src.psd",
       {1920, 1229, 6, 1},
       {"1920x1229+0+0", "圆角矩形 638 拷贝 108x78+488+1006", "3月 18x12+494+1012",
        "应收：2908 69x13+508+1034", "实收：3104 69x13+508+1054"},
       {},
       {{"圆角矩形 638 拷贝", 65}}},
      {"agpsd-read-write-shapes-src.psd",
       {500, 500, 8, 0},
       {"图层 0 500x500+0+0", "126x77+17+24", "圆角矩形 1 159x88+178+19", "92x160+390+21",
        "椭圆 2 145x145+47+151", "apple 200x150+265+240", "calendar 62x62+58+349", "pin 76x104+153+328"},
       {},
       {}},
      {"agpsd-write-complex-expected.psd",
       {300, 200, 6, 0},
       {"Background 300x200+0+0", "Layer #1 153x106+42+94", "Layer #2 278x98+15+87", "Layer #3 203x154+41+30",
        "Layer #4 220x143+30+34"},
       {"Layer #3"},
       {{"Layer #2", 39}, {"Layer #4", 78}}},
      {"psdtools-2layers.psd", {101, 55, 2, 0}, {"Фон 101x55+0+0", "Слой 85x46+8+4"}, {}, {}},
      {"psdtools-hidden-groups.psd",
       {100, 200, 5, 2},
       {"Background 100x200+0+0", "Shape 1 55x54+25+34", "Shape 2 43x62+40+72"},
       {"Group 1"},
       {}},
      {"psdtools-layer-name-emoji.psd", {4, 4, 1, 0}, {"👽 4x4+0+0"}, {}, {{"👽", 50}}},
      {"psdtools-layer_comps.psd",
       {200, 200, 13, 3},
       {"Фон 200x200+0+0", "Фигура 1 163x163+17+20", "Фигура 6 17x30+31+68", "Фигура 2 23x22+56+62",
        "Фигура 3 14x13+64+71", "Фигура 2 23x22+114+62", "Фигура 3 14x13+122+71", "Фигура 4 70x18+64+134",
        "Фигура 4 копия 70x18+64+135", "Фигура 5 38x50+105+138"},
       {"Фигура 6", "Фигура 4 копия"},
       {}},
      {"psdtools-masks.psd",
       {640, 1394, 22, 3},
       {},
       {"background", "thin arrow"},
       {{"email", 40}, {"twitter", 40}, {"linkedin", 40}, {"facebook", 40}}},
      {"psdtools-text.psd",
       {400, 400, 2, 0},
       {"Background 400x400+0+0", "Line 1 Line 2 Line 3 and text 85x41+84+110"},
       {},
       {}},
      {"psdtools-transparency-group.psd",
       {256, 256, 27, 6},
       {"Background 256x256+0+0",
        "Rectangle 1 130x130-1-1",
        "Rectangle 2 65x128+0+0",
        "Ellipse 1 66x66+15+47",
        "Ellipse 1 66x66+31+15",
        "Ellipse 1 66x66+47+47",
        "Rectangle 1 copy 130x130+127-1",
        "Rectangle 2 copy 65x128+128+0",
        "Ellipse 1 copy 66x66+143+47",
        "Ellipse 1 copy 2 66x66+159+15",
        "Ellipse 1 copy 3 66x66+175+47",
        "Rectangle 1 copy 2 130x130-1+127",
        "Rectangle 2 copy 2 65x128+0+128",
        "Ellipse 1 copy 4 66x66+15+175",
        "Ellipse 1 copy 5 66x66+31+143",
        "Ellipse 1 copy 6 66x66+47+175",
        "Rectangle 1 copy 3 130x130+127+127",
        "Rectangle 2 copy 3 65x128+128+128",
        "Ellipse 1 copy 7 66x66+143+175",
        "Ellipse 1 copy 8 66x66+159+143",
        "Ellipse 1 copy 9 66x66+175+175"},
       {},
       {{"Ellipse 1 copy", 50},
        {"Ellipse 1 copy 2", 50},
        {"Ellipse 1 copy 3", 50},
        {"Ellipse 1 copy 7", 50},
        {"Ellipse 1 copy 8", 50},
        {"Ellipse 1 copy 9", 50},
        {"Transparency Group 1", 50}}},
      {"psdtools-transparentbg-gimp.psd", {40, 40, 1, 0}, {"Фон 40x40+0+0"}, {}, {}},
  };
  return documents;
}

std::string geometry(const PsdRect& bounds) {
  const auto offset = [](std::int32_t value) { return (value < 0 ? "" : "+") + std::to_string(value); };
  return std::to_string(bounds.width()) + "x" + std::to_string(bounds.height()) + offset(bounds.left) +
         offset(bounds.top);
}

class PsdCorpusTest : public testing::TestWithParam<CorpusDocument> {};

TEST_P(PsdCorpusTest, ReadsLayersAsOtherToolsSeeThem) {
  const CorpusDocument& expected = GetParam();
  const std::filesystem::path path = std::filesystem::path(QVA_CORPUS_DIR) / "psd" / expected.file;
  if (!std::filesystem::exists(path)) {
    GTEST_SKIP() << "corpus file absent: " << path;
  }
  std::ifstream file(path, std::ios::binary);
  const std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(file)), {});
  const PsdReader::Result result = PsdReader::read(bytes);
  ASSERT_TRUE(result.document) << result.error;
  const PsdDocument& document = *result.document;
  EXPECT_EQ(document.width(), expected.outline.width);
  EXPECT_EQ(document.height(), expected.outline.height);
  EXPECT_EQ(document.composite()->width(), expected.outline.width);
  ASSERT_EQ(document.layers().size(), expected.outline.layerCount);

  std::size_t groups = 0;
  std::vector<const PsdLayerRecord*> withPixels;
  std::set<std::string> hidden;
  for (const PsdLayerRecord& layer : document.layers()) {
    const bool group =
        layer.section == PsdSectionType::OpenGroup || layer.section == PsdSectionType::ClosedGroup;
    groups += group ? 1 : 0;
    if (layer.pixels) {
      withPixels.push_back(&layer);
      EXPECT_EQ(layer.pixels->width(), layer.bounds.width());
      EXPECT_EQ(layer.pixels->height(), layer.bounds.height());
    }
    if (layer.flags & 0x02) {
      hidden.insert(layer.name);
    }
    const auto opacity = expected.opacityPercent.find(layer.name);
    const int percent = opacity == expected.opacityPercent.end() ? 100 : opacity->second;
    EXPECT_NEAR(layer.opacity * 100.0 / 255.0, percent, 0.5) << layer.name;
  }
  EXPECT_EQ(groups, expected.outline.groupCount);
  EXPECT_EQ(hidden, expected.hidden);
  if (!expected.pixelLayers.empty()) {
    ASSERT_EQ(withPixels.size(), expected.pixelLayers.size());
    for (std::size_t i = 0; i < withPixels.size(); ++i) {
      const bool named = expected.pixelLayers[i].find(' ') != std::string::npos;
      EXPECT_EQ((named ? withPixels[i]->name + " " : "") + geometry(withPixels[i]->bounds),
                expected.pixelLayers[i])
          << i;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Corpus, PsdCorpusTest, testing::ValuesIn(corpus()),
                         [](const testing::TestParamInfo<CorpusDocument>& param) {
                           std::string name = param.param.file.substr(0, param.param.file.size() - 4);
                           for (char& c : name) {
                             c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
                           }
                           return name;
                         });

}  // namespace
}  // namespace qva
