// The rich text core on its hot paths: reading a style string back (every consumer patch does it each
// frame), writing one, and reading a 1 MB document.
#include <benchmark/benchmark.h>

#include <string>

#include "foundation/rtf/RTFStringExtensions.h"
#include "foundation/rtf/RtfReader.h"

namespace {

using qva::RTFStringExtensions;

qva::TextAttributes styleAttributes() {
  qva::TextAttributes attributes;
  attributes.font = qva::FontDescriptor{"LucidaGrande", 40};
  attributes.foregroundColor = attributes.underlineColor.emplace() = qva::Color{1, 0, 0, 1};
  attributes.strokeColor = attributes.strikethroughColor = qva::Color{1, 0, 0, 1};
  attributes.shadow = qva::TextShadow{2, -2, 1, qva::Color{0, 0, 0, 1}};
  return attributes;
}

// About 1 MB of text in the platform dialect: paragraphs with bold, coloured and underlined words,
// accented letters as \'hh and non-Latin ones as \uN.
std::string megabyteDocument() {
  std::string document =
      "{\\rtf1\\ansi\\ansicpg1252\\cocoartf2639\n{\\fonttbl\\f0\\fswiss\\fcharset0 Helvetica;"
      "\\f1\\fnil\\fcharset0 "
      "LucidaGrande;}\n{\\colortbl;\\red255\\green255\\blue255;\\red255\\green0\\blue0;}\n"
      "{\\*\\expandedcolortbl;;\\csgenericrgb\\c100000\\c0\\c0;}"
      "\n\\pard\\tx560\\pardeftab720\\partightenfactor0\n";
  int paragraph = 0;
  while (document.size() < (1 << 20)) {
    document += "\\f0\\fs24 \\cf0 Paragraph " + std::to_string(paragraph++) +
                ": the quick brown fox jumps over the lazy dog, caf\\'e9 cr\\'e8me br\\'fbl\\'e9e; "
                "{\\b bold words} and {\\i italic ones}, \\cf2 \\ul red underlined\\ulnone \\cf0 , "
                "\\f1\\fs30 \\uc0\\u1055 \\u1088 \\u1080 \\u1074 \\u1077 \\u1090  \\f0\\fs24 \\'a9 2024\\\n";
  }
  return document + "}";
}

void BM_DescribeStyleString(benchmark::State& state) {
  const std::string style =
      *RTFStringExtensions::RTFAsPlainString(qva::AttributedString(u"Format String", styleAttributes()));
  for (auto _ : state) {
    benchmark::DoNotOptimize(RTFStringExtensions::describedRTFAttributes(style));
  }
}
BENCHMARK(BM_DescribeStyleString);

void BM_WriteStyleString(benchmark::State& state) {
  const qva::AttributedString text(u"Format String", styleAttributes());
  for (auto _ : state) {
    benchmark::DoNotOptimize(RTFStringExtensions::RTFAsPlainString(text));
  }
}
BENCHMARK(BM_WriteStyleString);

void BM_ReadMegabyteDocument(benchmark::State& state) {
  const std::string document = megabyteDocument();
  for (auto _ : state) {
    benchmark::DoNotOptimize(qva::RtfReader::read(document));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * document.size()));
}
BENCHMARK(BM_ReadMegabyteDocument)->Unit(benchmark::kMillisecond);

}  // namespace
