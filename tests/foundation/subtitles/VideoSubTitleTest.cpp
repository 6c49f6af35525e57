#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "foundation/subtitles/VideoSubTitle.h"
#include "support/TemporaryFolder.h"

namespace qva {
namespace {

const std::string kStyle = "Style: Default,Arial,28,65535,255,0,-2147483640,-1,0,1,3,0,2,30,31,32,0,0\n";

std::string dialogue(const std::string& start, const std::string& end, const std::string& text,
                     const std::string& style = "Default") {
  return "Dialogue: Marked=0," + start + "," + end + "," + style + ",,0000,0000,0000,," + text + "\n";
}

class ParsedScript {
 public:
  explicit ParsedScript(const std::string& script) {
    result = videoSubTitle_parseSAA(script.c_str(), vsa, &failure);
  }
  ~ParsedScript() { videoSubTitle_freeArray(vsa); }

  VideoSubTitleArray vsa;
  VideoSubTitleArray* result = nullptr;
  std::string failure;
};

TEST(VideoSubTitleParse, ReadsTheDialogueFieldsInFixedOrder) {
  ParsedScript parsed("[V4 Styles]\n" + kStyle + "[Events]\n" +
                      "Dialogue: Marked=0,0:00:01.00,0:00:04.50,Default,,0000,0000,0000,,Hello, world\n" +
                      "dialogue: 0,0:01:02.03,1:00:00.00,default,Actor,12,-3,+7,Fx,{\\b1}Bold,text,\n");
  ASSERT_EQ(parsed.result, &parsed.vsa) << parsed.failure;
  ASSERT_EQ(parsed.vsa.m_count, 2u);
  ASSERT_EQ(parsed.vsa.m_style_count, 1u);
  const VideoSubTitleEntry& first = parsed.vsa.m_array[0];
  EXPECT_EQ(first.m_start_ms, 1000u);
  EXPECT_EQ(first.m_end_ms, 4500u);
  EXPECT_EQ(first.m_text, "Hello, world");
  EXPECT_EQ(first.m_margin_l, 0);
  EXPECT_EQ(first.m_margin_v, 0);
  EXPECT_EQ(first.m_style, &parsed.vsa.m_style_array[0]);
  const VideoSubTitleEntry& second = parsed.vsa.m_array[1];
  EXPECT_EQ(second.m_start_ms, 62030u);
  EXPECT_EQ(second.m_end_ms, 3600000u);
  EXPECT_EQ(second.m_margin_l, 12);
  EXPECT_EQ(second.m_margin_r, -3);
  EXPECT_EQ(second.m_margin_v, 7);
  EXPECT_EQ(second.m_text, "{\\b1}Bold,text,");
  EXPECT_EQ(parsed.vsa.m_current, kVideoSubTitleNoEntry);
  EXPECT_EQ(parsed.vsa.m_next, 0u);
}

TEST(VideoSubTitleParse, ReadsStyleFieldsAsV4Decimals) {
  ParsedScript parsed(kStyle +
                      "STYLE: Hex, Gill Sans ,36.5,&H00FFFFFF,  -12,7x,,1,1,1,1,1,1,1,1,1,99999999999,-5\n" +
                      dialogue("0:00:00.00", "0:00:01.00", "x"));
  ASSERT_EQ(parsed.result, &parsed.vsa) << parsed.failure;
  ASSERT_EQ(parsed.vsa.m_style_count, 2u);
  const VideoSubTitleStyle& plain = parsed.vsa.m_style_array[0];
  EXPECT_EQ(plain.m_name, "Default");
  EXPECT_EQ(plain.m_font_name, "Arial");
  EXPECT_DOUBLE_EQ(plain.m_font_size, 28.0);
  EXPECT_EQ(plain.m_primary_colour, 65535);
  EXPECT_EQ(plain.m_secondary_colour, 255);
  EXPECT_EQ(plain.m_back_colour, -2147483640);
  EXPECT_EQ(plain.m_bold, -1);
  EXPECT_EQ(plain.m_alignment, 2);
  EXPECT_EQ(plain.m_margin_l, 30);
  EXPECT_EQ(plain.m_margin_r, 31);
  EXPECT_EQ(plain.m_margin_v, 32);
  const VideoSubTitleStyle& odd = parsed.vsa.m_style_array[1];
  EXPECT_EQ(odd.m_name, "Hex");
  EXPECT_EQ(odd.m_font_name, " Gill Sans ");  // not trimmed
  EXPECT_DOUBLE_EQ(odd.m_font_size, 36.5);
  EXPECT_EQ(odd.m_primary_colour, 0);  // "&H" colours read as 0
  EXPECT_EQ(odd.m_secondary_colour, -12);
  EXPECT_EQ(odd.m_tertiary_colour, 7);
  EXPECT_EQ(odd.m_back_colour, 0);
  EXPECT_EQ(odd.m_alpha_level, 2147483647);  // saturated, not wrapped
  EXPECT_EQ(odd.m_encoding, -5);
}

TEST(VideoSubTitleParse, KeepsCarriageReturnsInTextButNotInStyleNames) {
  ParsedScript parsed(
      "Style: Default,Arial,20,1,2,3,4,0,0,1,1,1,2,1,1,1,0,0\r\n"
      "Style:Default,Arial,20,1,2,3,4,0,0,1,1,1,2,1,1,1,0,0\r\n"
      "Dialogue: 0,0:00:01.00,0:00:02.00,Default,,0,0,0,,Line\r\n");
  ASSERT_EQ(parsed.result, &parsed.vsa) << parsed.failure;
  EXPECT_EQ(parsed.vsa.m_style_array[0].m_name, "Default");
  EXPECT_EQ(parsed.vsa.m_style_array[1].m_name, "efault");
  EXPECT_EQ(parsed.vsa.m_style_array[1].m_encoding, 0);
  EXPECT_EQ(parsed.vsa.m_array[0].m_text, "Line\r");
}

TEST(VideoSubTitleParse, IndentedLinesAndStarredStyleNamesReadAsPlayersReadThem) {
  ParsedScript parsed(
      " [V4 Styles]\n"
      "  Style: Default,Arial,20,1,2,3,4,0,0,1,1,1,2,1,1,1,0,0\n"
      "\tStyle:Second,Tahoma,30,1,2,3,4,0,0,1,1,1,2,1,1,1,0,0\n"
      " [Events]\n"
      " Dialogue: 0,0:00:01.00,0:00:02.00,*Default,,0,0,0,,  one\n"
      "\t Dialogue: 0,0:00:03.00,0:00:04.00,*ECOND,,0,0,0,,two\n"
      "Dialogue: 0,0:00:05.00,0:00:06.00,Default,,0,0,0,,three\n");
  ASSERT_EQ(parsed.result, &parsed.vsa) << parsed.failure;
  ASSERT_EQ(parsed.vsa.m_style_count, 2u);
  EXPECT_EQ(parsed.vsa.m_style_array[0].m_name, "Default");
  EXPECT_EQ(parsed.vsa.m_style_array[1].m_name, "econd");  // one character after the colon is skipped
  EXPECT_EQ(parsed.vsa.m_style_array[1].m_font_name, "Tahoma");
  ASSERT_EQ(parsed.vsa.m_count, 3u);
  EXPECT_EQ(parsed.vsa.m_array[0].m_style, &parsed.vsa.m_style_array[0]);
  EXPECT_EQ(parsed.vsa.m_array[0].m_text, "  one");  // blanks inside the line stay
  EXPECT_EQ(parsed.vsa.m_array[1].m_style, &parsed.vsa.m_style_array[1]);
  EXPECT_EQ(parsed.vsa.m_array[1].m_start_ms, 3000u);
  EXPECT_EQ(parsed.vsa.m_array[2].m_text, "three");

  // The star is only dropped when the name as written names no style.
  ParsedScript starred(
      "Style: *Star,Arial,20,1,2,3,4,0,0,1,1,1,2,1,1,1,0,0\n"
      "Style: Star,Tahoma,20,1,2,3,4,0,0,1,1,1,2,1,1,1,0,0\n" +
      dialogue("0:00:01.00", "0:00:02.00", "x", "*Star") + dialogue("0:00:01.00", "0:00:02.00", "x", "Star"));
  ASSERT_EQ(starred.result, &starred.vsa) << starred.failure;
  EXPECT_EQ(starred.vsa.m_array[0].m_style->m_font_name, "Arial");
  EXPECT_EQ(starred.vsa.m_array[1].m_style->m_font_name, "Tahoma");
}

TEST(VideoSubTitleParse, HardFailuresLeaveNoTables) {
  struct Case {
    std::string script;
    std::string why;
  };
  const Case cases[] = {
      {"", "no dialogue line"},
      {kStyle + "Comment: 0,0:00:01.00,0:00:02.00,Default,,0,0,0,,x\n", "no dialogue line"},
      {kStyle + dialogue("0:00:01.00", "0:00:02.00", "x", "Missing"), "unknown style \"Missing\""},
      {dialogue("0:00:01.00", "0:00:02.00", "x"), "unknown style"},
      {kStyle + dialogue("0:00:01.00", "0:00:02.00", "x", "*Missing"), "unknown style \"*Missing\""},
      {kStyle + "Dialogue: 0,0:00:01.00,0:00:02.00,Default,,0,0\n", "dialogue line lacks fields"},
      {kStyle + "Dialogue: 0,0:00:01.00\n", "dialogue line lacks fields"},
      {"Style: Short,Arial,20,1,2,3,4,0,0,1,1,1,2,1\n" + dialogue("0:00:01.00", "0:00:02.00", "x"),
       "style line lacks fields"},
      {"Style:\n" + dialogue("0:00:01.00", "0:00:02.00", "x"), "style line lacks fields"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.script);
    ParsedScript parsed(c.script);
    EXPECT_EQ(parsed.result, nullptr);
    EXPECT_EQ(parsed.vsa.m_array, nullptr);
    EXPECT_EQ(parsed.vsa.m_style_array, nullptr);
    EXPECT_EQ(parsed.vsa.m_count, 0u);
    EXPECT_EQ(parsed.vsa.m_style_count, 0u);
    EXPECT_NE(parsed.failure.find(c.why), std::string::npos) << parsed.failure;
  }
}

TEST(VideoSubTitleParse, LastFieldMayBeMissingAndCommalessDialogueStopsTheParse) {
  ParsedScript missingText(kStyle + "Dialogue: 0,0:00:01.00,0:00:02.00,Default,,1,2,3,Fx");
  ASSERT_EQ(missingText.result, &missingText.vsa) << missingText.failure;
  ASSERT_EQ(missingText.vsa.m_count, 1u);
  EXPECT_EQ(missingText.vsa.m_array[0].m_text, "");
  EXPECT_EQ(missingText.vsa.m_array[0].m_margin_v, 3);

  ParsedScript stopped(kStyle + dialogue("0:00:01.00", "0:00:02.00", "kept") + "Dialogue: no comma here\n" +
                       dialogue("0:00:03.00", "0:00:04.00", "lost"));
  EXPECT_EQ(stopped.result, nullptr);
  EXPECT_TRUE(stopped.failure.empty());
  ASSERT_NE(stopped.vsa.m_array, nullptr);
  ASSERT_EQ(stopped.vsa.m_count, 1u);
  EXPECT_EQ(stopped.vsa.m_array[0].m_text, "kept");
}

TEST(VideoSubTitleParse, LongLinesAreReadInPiecesOfAtMost1024Characters) {
  const std::string longText(1500, 'a');
  // The second physical line holds a dialogue line exactly where its first 1024-character piece ends.
  const std::string filler = "; " + std::string(kVideoSubTitleLineLength - 2, 'f');
  ParsedScript parsed(kStyle + dialogue("0:00:01.00", "0:00:02.00", longText) + filler +
                      dialogue("0:00:03.00", "0:00:04.00", "hidden"));
  ASSERT_EQ(parsed.result, &parsed.vsa) << parsed.failure;
  ASSERT_EQ(parsed.vsa.m_count, 2u);
  const std::size_t prefix =
      std::string("Dialogue: Marked=0,0:00:01.00,0:00:02.00,Default,,0000,0000,0000,,").size();
  EXPECT_EQ(parsed.vsa.m_array[0].m_text, std::string(kVideoSubTitleLineLength - prefix, 'a'));
  EXPECT_EQ(parsed.vsa.m_array[1].m_text, "hidden");

  char line[kVideoSubTitleLineLength + 1];
  const std::string source = std::string(2000, 'x') + "\nend";
  ASSERT_NE(parseSAALine(line, source.c_str()), nullptr);
  EXPECT_EQ(std::string(line).size(), kVideoSubTitleLineLength);
  EXPECT_EQ(parseSAALine(line, ""), nullptr);
}

TEST(VideoSubTitleTokens, FieldsEndAtCommaOrNewlineAndKeepBlanks) {
  char token[kVideoSubTitleLineLength + 1];
  const char* text = " a ,b\r\nc";
  const char* next = parseSAAToken(text, token, false);
  EXPECT_STREQ(token, " a ");
  next = parseSAAToken(next, token, false);
  EXPECT_STREQ(token, "b\r");
  EXPECT_STREQ(next, "c");
  next = parseSAAToken(next, token, false);
  EXPECT_STREQ(token, "c");
  ASSERT_NE(next, nullptr);
  EXPECT_EQ(*next, '\0');
  EXPECT_EQ(parseSAAToken(next, token, false), nullptr);
  EXPECT_STREQ(token, "");
  next = parseSAAToken("x,y,z\nrest", token, true);
  EXPECT_STREQ(token, "x,y,z");
  EXPECT_STREQ(next, "rest");
}

TEST(VideoSubTitleTimes, FourNumbersWithTheLastInHundredths) {
  EXPECT_EQ(convertSAATimeToMS("0:00:01.00"), 1000u);
  EXPECT_EQ(convertSAATimeToMS("0:00:01.5"), 1050u);
  EXPECT_EQ(convertSAATimeToMS("0:00:01.500"), 6000u);
  EXPECT_EQ(convertSAATimeToMS("1:02:03.04"), 3723040u);
  EXPECT_EQ(convertSAATimeToMS("2-03x04y05"), 2 * 3600000u + 3 * 60000u + 4000u + 50u);
  EXPECT_EQ(convertSAATimeToMS("0:01"), 60000u);
  EXPECT_EQ(convertSAATimeToMS("0::05.00"), 0u);
  EXPECT_EQ(convertSAATimeToMS(""), 0u);
  EXPECT_EQ(convertSAATimeToMS("garbage"), 0u);
  // Absurd values wrap like 32-bit arithmetic instead of overflowing.
  EXPECT_NO_FATAL_FAILURE(convertSAATimeToMS("99999999999999999999999:99999999999:9:9"));
}

TEST(VideoSubTitleStyles, LookupMatchesOverTheWantedLengthIgnoringCase) {
  ParsedScript parsed(
      "Style: DefaultBig,A,1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0\n"
      "Style: Default,B,1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0\n"
      "Style: Other,C,1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0\n" +
      dialogue("0:00:01.00", "0:00:02.00", "x", "default"));
  ASSERT_EQ(parsed.result, &parsed.vsa) << parsed.failure;
  const VideoSubTitleStyle* styles = parsed.vsa.m_style_array.get();
  EXPECT_EQ(parsed.vsa.m_array[0].m_style, &styles[0]);
  EXPECT_EQ(videoSubTitle_findStyle(parsed.vsa, "DEFAULT"), &styles[0]);
  EXPECT_EQ(videoSubTitle_findStyle(parsed.vsa, "DefaultBig"), &styles[0]);
  EXPECT_EQ(videoSubTitle_findStyle(parsed.vsa, ""), &styles[0]);
  EXPECT_EQ(videoSubTitle_findStyle(parsed.vsa, "oth"), &styles[2]);
  EXPECT_EQ(videoSubTitle_findStyle(parsed.vsa, "OtherX"), nullptr);
  VideoSubTitleArray empty;
  EXPECT_EQ(videoSubTitle_findStyle(empty, ""), nullptr);
}

TEST(VideoSubTitleLookup, EndsAreInclusiveAndTheHintSkipsEarlierEntries) {
  ParsedScript parsed(kStyle + dialogue("0:00:01.00", "0:00:04.50", "a") +
                      dialogue("0:00:02.00", "0:00:06.00", "b") + dialogue("0:00:03.00", "0:00:05.00", "c") +
                      dialogue("0:00:08.00", "0:00:09.00", "d"));
  ASSERT_EQ(parsed.result, &parsed.vsa) << parsed.failure;
  VideoSubTitleArray& vsa = parsed.vsa;
  EXPECT_EQ(videoSubTitle_findEntryByTime(vsa, 999, false), kVideoSubTitleNoEntry);
  EXPECT_EQ(videoSubTitle_findEntryByTime(vsa, 1000, false), 0u);
  EXPECT_EQ(videoSubTitle_findEntryByTime(vsa, 4500, false), 0u);
  EXPECT_EQ(videoSubTitle_findEntryByTime(vsa, 4501, false), 1u);
  EXPECT_EQ(videoSubTitle_findEntryByTime(vsa, 7000, false), kVideoSubTitleNoEntry);
  EXPECT_EQ(videoSubTitle_findEntryByTime(vsa, 10000, true), kVideoSubTitleNoEntry);

  vsa.m_current = 2;
  EXPECT_EQ(videoSubTitle_findEntryByTime(vsa, 3500, true), 2u);  // entry 0 covers it too
  EXPECT_EQ(videoSubTitle_findEntryByTime(vsa, 3500, false), 0u);
  EXPECT_EQ(videoSubTitle_findEntryByTime(vsa, 2500, true), 0u);  // before entry 2: from the start
  EXPECT_EQ(videoSubTitle_findEntryByTime(vsa, 8500, true), 3u);
  vsa.m_current = 0;
  EXPECT_EQ(videoSubTitle_findEntryByTime(vsa, 5500, true), 1u);
  vsa.m_current = 17;  // out of range: ignored
  EXPECT_EQ(videoSubTitle_findEntryByTime(vsa, 1500, true), 0u);
}

TEST(VideoSubTitleLookup, EntriesOutOfStartOrderAreStillFound) {
  ParsedScript parsed(kStyle + dialogue("0:00:10.00", "0:00:11.00", "late") +
                      dialogue("0:00:01.00", "0:00:02.00", "early"));
  ASSERT_EQ(parsed.result, &parsed.vsa) << parsed.failure;
  EXPECT_FALSE(parsed.vsa.m_starts_ordered);
  EXPECT_EQ(videoSubTitle_findEntryByTime(parsed.vsa, 1500, false), 1u);
  EXPECT_EQ(videoSubTitle_findEntryByTime(parsed.vsa, 10500, false), 0u);
}

TEST(VideoSubTitleFrames, WholeMillisecondFrameLengthAndForwardCursor) {
  ParsedScript parsed(kStyle + dialogue("0:00:01.00", "0:00:04.50", "a") +
                      dialogue("0:00:05.00", "0:00:06.00", "b"));
  ASSERT_EQ(parsed.result, &parsed.vsa) << parsed.failure;
  VideoSubTitleArray& vsa = parsed.vsa;
  videoSubTitle_calcFrames(vsa, 60);
  EXPECT_EQ(vsa.m_array[0].m_start_frame, 62u);
  EXPECT_EQ(vsa.m_array[0].m_end_frame, 281u);
  EXPECT_TRUE(videoSubTitle_checkFrame(vsa.m_array[0], 281));
  EXPECT_FALSE(videoSubTitle_checkFrame(vsa.m_array[0], 282));

  EXPECT_FALSE(videoSubTitle_processFrame(vsa, 10));
  EXPECT_TRUE(videoSubTitle_processFrame(vsa, 62));
  EXPECT_EQ(vsa.m_current, 0u);
  EXPECT_EQ(vsa.m_next, 1u);
  EXPECT_TRUE(videoSubTitle_processFrame(vsa, 200));
  EXPECT_FALSE(videoSubTitle_processFrame(vsa, 290));
  EXPECT_EQ(vsa.m_current, kVideoSubTitleNoEntry);
  EXPECT_TRUE(videoSubTitle_processFrame(vsa, 312));
  EXPECT_EQ(vsa.m_current, 1u);
  EXPECT_EQ(vsa.m_next, kVideoSubTitleNoEntry);
  EXPECT_FALSE(videoSubTitle_processFrame(vsa, 80));  // never goes back

  videoSubTitle_calcFrames(vsa, 0);  // no frames at rate 0, and no division by zero
  EXPECT_EQ(vsa.m_array[1].m_end_frame, 0u);
  videoSubTitle_calcFrames(vsa, 5000);
  EXPECT_EQ(vsa.m_array[1].m_end_frame, 6000u);
}

class VideoSubTitleFile : public ::testing::Test {
 protected:
  std::string write(const std::string& name, const std::string& bytes) {
    const std::filesystem::path path = folder_ / name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path.string();
  }
  // Reads the bytes, written to a file of the name, at 60 frames a second.
  int read(const std::string& name, const std::string& bytes, VideoSubTitleArray& vsa,
           std::string* failure = nullptr) {
    return videoSubTitle_readFromFile(write(name, bytes), vsa, 60, failure);
  }

  TemporaryFolder folder_{"vst"};
};

TEST_F(VideoSubTitleFile, UnreadableFilesLeaveTheArrayUntouched) {
  VideoSubTitleArray vsa;
  ASSERT_EQ(read("ok file é.ssa", kStyle + dialogue("0:00:01.00", "0:00:02.00", "x"), vsa), 0);
  ASSERT_EQ(vsa.m_count, 1u);
  EXPECT_EQ(vsa.m_array[0].m_end_frame, 125u);
  EXPECT_EQ(videoSubTitle_readFromFile((folder_ / "missing.ssa").string(), vsa, 60), kVideoSubTitleReadError);
  EXPECT_EQ(videoSubTitle_readFromFile(folder_.path().string(), vsa, 60), kVideoSubTitleReadError);
  EXPECT_EQ(vsa.m_count, 1u);

  std::string failure;
  EXPECT_EQ(read("empty.ssa", "", vsa, &failure), 0);
  EXPECT_EQ(vsa.m_array, nullptr);
  EXPECT_EQ(failure, "no dialogue line");
}

// The script's text as UTF-16 code units in the given byte order, after its byte-order mark.
std::string utf16WithMark(const std::string& ascii, bool littleEndian) {
  std::string bytes = littleEndian ? "\xFF\xFE" : "\xFE\xFF";
  for (char c : ascii) {
    bytes += littleEndian ? std::string{c, '\0'} : std::string{'\0', c};
  }
  return bytes;
}

TEST_F(VideoSubTitleFile, AByteOrderMarkDecidesTheEncoding) {
  const std::string script = kStyle + "Dialogue: 0,0:00:01.00,0:00:02.00,Default,,0,0,0,,Hi\r\n";
  for (bool littleEndian : {true, false}) {
    VideoSubTitleArray vsa;
    std::string failure;
    ASSERT_EQ(read("utf16.ssa", utf16WithMark(script, littleEndian), vsa, &failure), 0);
    ASSERT_EQ(vsa.m_count, 1u) << failure;
    EXPECT_EQ(vsa.m_encoding, "UTF-8");
    EXPECT_EQ(vsa.m_array[0].m_text, "Hi\r");
    EXPECT_EQ(vsa.m_array[0].m_style->m_font_name, "Arial");
    videoSubTitle_freeArray(vsa);
    EXPECT_EQ(vsa.m_encoding, "");
  }

  VideoSubTitleArray vsa;
  ASSERT_EQ(read("utf8.ssa", "\xEF\xBB\xBF" + script, vsa), 0);
  ASSERT_EQ(vsa.m_count, 1u);
  EXPECT_EQ(vsa.m_encoding, "UTF-8");
  ASSERT_EQ(read("plain.ssa", script, vsa), 0);
  ASSERT_EQ(vsa.m_count, 1u);
  EXPECT_EQ(vsa.m_encoding, "");

  // A mark followed by bytes that are not that encoding (half a UTF-16 code unit, a lone surrogate).
  std::string failure;
  for (const std::string& broken :
       {utf16WithMark(script, true) + "x", utf16WithMark(script, true) + std::string("\x00\xD8", 2)}) {
    ASSERT_EQ(read("broken.ssa", broken, vsa, &failure), 0);
    EXPECT_EQ(vsa.m_array, nullptr);
    EXPECT_EQ(failure, "the script is not valid UTF-16LE");
  }
}

TEST_F(VideoSubTitleFile, ACarriageReturnAloneEndsALine) {
  VideoSubTitleArray vsa;
  const std::string script = "[V4 Styles]\r" + kStyle.substr(0, kStyle.size() - 1) + "\r\r" +
                             "Dialogue: 0,0:00:01.00,0:00:02.00,Default,,0,0,0,,one\r" +
                             "Dialogue: 0,0:00:03.00,0:00:04.00,Default,,0,0,0,,two\r\n" +
                             "Dialogue: 0,0:00:05.00,0:00:06.00,Default,,0,0,0,,three\r";
  ASSERT_EQ(read("mac.ssa", script, vsa), 0);
  ASSERT_EQ(vsa.m_count, 3u);
  EXPECT_EQ(vsa.m_array[0].m_text, "one");
  EXPECT_EQ(vsa.m_array[1].m_text, "two\r");  // a carriage return before a newline stays in the text
  EXPECT_EQ(vsa.m_array[2].m_text, "three");
  EXPECT_EQ(vsa.m_array[2].m_start_ms, 5000u);
}

TEST_F(VideoSubTitleFile, BinaryGarbageAndHugeFilesParseWithoutHarm) {
  std::string garbage;
  unsigned state = 12345;
  for (int i = 0; i < 200000; ++i) {
    state = state * 1103515245u + 12345u;
    garbage.push_back(static_cast<char>(state >> 16));
  }
  garbage += "\nDialogue:\xff\xfe,,,\n";
  VideoSubTitleArray vsa;
  std::string failure;
  EXPECT_EQ(read("garbage.ssa", garbage, vsa, &failure), 0);
  EXPECT_EQ(vsa.m_count, 0u);
  EXPECT_FALSE(failure.empty());
  videoSubTitle_freeArray(vsa);

  // About 100 MB: one style and 100,000 dialogue lines of 1,000 characters.
  std::string huge = kStyle;
  const std::string text(1000 - 70, 't');
  huge.reserve(100'100'000);
  for (int i = 0; i < 100000; ++i) {
    huge += dialogue("0:00:01.00", "0:00:02.00", text);
  }
  EXPECT_EQ(read("huge.ssa", huge, vsa), 0);
  EXPECT_EQ(vsa.m_count, 100000u);
  EXPECT_EQ(vsa.m_array[99999].m_text, text);
}

}  // namespace
}  // namespace qva
