#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace qva {

// A reader of SubStation Alpha (v4) scripts: styles and timed dialogue entries, kept as raw bytes in the
// script's own encoding. Field order is the fixed v4 order; "Format:" lines are not interpreted.

// Index value meaning "no entry" (all bits set).
inline constexpr std::uint32_t kVideoSubTitleNoEntry = 0xFFFFFFFFu;
// Longest line read at once; longer lines are read as several lines.
inline constexpr std::size_t kVideoSubTitleLineLength = 1024;
// Result of videoSubTitle_readFromFile when the file cannot be read.
inline constexpr int kVideoSubTitleReadError = 12;

struct VideoSubTitleStyle {
  std::string m_name;
  std::string m_font_name;
  double m_font_size = 0;
  // Red in bits 0-7, green in 8-15, blue in 16-23.
  std::int32_t m_primary_colour = 0;
  std::int32_t m_secondary_colour = 0;
  std::int32_t m_tertiary_colour = 0;
  std::int32_t m_back_colour = 0;
  std::int32_t m_bold = 0;
  std::int32_t m_italic = 0;
  std::int32_t m_border_style = 0;
  std::int32_t m_outline = 0;
  std::int32_t m_shadow = 0;
  std::int32_t m_alignment = 0;
  std::int32_t m_margin_l = 0;
  std::int32_t m_margin_r = 0;
  std::int32_t m_margin_v = 0;
  std::int32_t m_alpha_level = 0;
  std::int32_t m_encoding = 0;
};

struct VideoSubTitleEntry {
  std::uint32_t m_start_ms = 0;
  std::uint32_t m_end_ms = 0;
  std::uint32_t m_start_frame = 0;
  std::uint32_t m_end_frame = 0;
  // The rest of the line after the ninth comma, commas and a carriage return included.
  std::string m_text;
  const VideoSubTitleStyle* m_style = nullptr;
  std::int32_t m_margin_l = 0;
  std::int32_t m_margin_r = 0;
  std::int32_t m_margin_v = 0;
};

struct VideoSubTitleArray {
  // Both tables are sized once by the first pass; null until a parse allocated them.
  std::unique_ptr<VideoSubTitleEntry[]> m_array;
  std::uint32_t m_count = 0;
  std::uint32_t m_current = kVideoSubTitleNoEntry;
  std::uint32_t m_next = 0;
  std::uint32_t m_style_count = 0;
  std::unique_ptr<VideoSubTitleStyle[]> m_style_array;
  const VideoSubTitleStyle* m_cur_style = nullptr;
  // The encoding the script's byte-order mark named ("UTF-8" for UTF-16 scripts, which are read as
  // UTF-8); empty when the script has no mark and its bytes are in an encoding the caller chooses.
  std::string m_encoding;
  // True when no entry starts before its predecessor, so a lookup may stop at the first later start.
  bool m_starts_ordered = true;
};

void videoSubTitle_initArray(VideoSubTitleArray& vsa);
void videoSubTitle_freeArray(VideoSubTitleArray& vsa);

// Reads and parses the file, then computes frames at the rate. A byte-order mark decides the encoding
// (m_encoding), and a carriage return alone ends a line as a newline does. 0 when the file was read (whatever
// the parse gave), kVideoSubTitleReadError when it could not be read (the array is then left untouched). A
// script that cannot be parsed leaves the array without tables; failure, when given, receives why.
int videoSubTitle_readFromFile(const std::string& path, VideoSubTitleArray& vsa,
                               std::uint32_t framesPerSecond, std::string* failure = nullptr);

// Two passes over the zero-terminated script; lines may be indented by blanks and dialogue may name a
// style with a leading "*". Returns &vsa, or nullptr when the parse stopped early (a
// dialogue line without its first comma: the entries read so far are kept) or failed (no dialogue line,
// an unknown style, a line lacking two or more fields: both tables are freed and failure says why).
VideoSubTitleArray* videoSubTitle_parseSAA(const char* script, VideoSubTitleArray& vsa,
                                           std::string* failure = nullptr);

// Frame numbers of every entry; the frame length is 1000 / rate in whole milliseconds.
void videoSubTitle_calcFrames(VideoSubTitleArray& vsa, std::uint32_t framesPerSecond);

// The first style whose name starts with the wanted name, ignoring case; nullptr when none.
const VideoSubTitleStyle* videoSubTitle_findStyle(const VideoSubTitleArray& vsa, const char* name);

// Index of the first entry showing at the time, or kVideoSubTitleNoEntry. With the hint the search
// starts at m_current when that entry starts no later than the time.
std::uint32_t videoSubTitle_findEntryByTime(const VideoSubTitleArray& vsa, std::uint32_t milliseconds,
                                            bool useHint);

bool videoSubTitle_checkEntryByTime(const VideoSubTitleEntry& entry, std::uint32_t milliseconds);
bool videoSubTitle_checkFrame(const VideoSubTitleEntry& entry, std::uint32_t frame);

// Forward-only frame cursor over m_current and m_next.
bool videoSubTitle_processFrame(VideoSubTitleArray& vsa, std::uint32_t frame);

// Copies one line (newline included, at most kVideoSubTitleLineLength characters) into line, which holds
// kVideoSubTitleLineLength + 1 characters. nullptr at the end of the data.
char* parseSAALine(char* line, const char* source);

// Copies one field into token (emptied first; holds kVideoSubTitleLineLength + 1 characters): up to a
// newline or, unless restOfLine, a comma. The next position follows the delimiter; nullptr when the
// position is at the end of the data.
const char* parseSAAToken(const char* position, char* token, bool restOfLine);

// "H:MM:SS.CC" to milliseconds: four integers separated by any single characters, the last counted in
// hundredths whatever its digit count. Missing parts count as 0.
std::uint32_t convertSAATimeToMS(const char* text);

}  // namespace qva
