#include "foundation/subtitles/VideoSubTitle.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "foundation/encodings/StringEncodings.h"
#include "foundation/xpl/xplFiles.h"
#include "foundation/xpl/xplText.h"

namespace qva {

namespace {

constexpr char kStylePrefix[] = "Style:";
constexpr char kDialoguePrefix[] = "Dialogue:";
constexpr std::size_t kStylePrefixLength = sizeof kStylePrefix - 1;
constexpr std::size_t kDialoguePrefixLength = sizeof kDialoguePrefix - 1;

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// Leading blanks and a sign, then digits up to the first other character; no digits give 0. Values
// beyond the 64-bit range saturate instead of overflowing.
std::int64_t readDecimal(const char*& text, bool& hadDigits) {
  while (isBlank(*text)) {
    ++text;
  }
  bool negative = false;
  if (*text == '-' || *text == '+') {
    negative = *text == '-';
    ++text;
  }
  constexpr std::int64_t kLimit = std::numeric_limits<std::int64_t>::max() / 10 - 10;
  std::int64_t value = 0;
  hadDigits = false;
  while (*text >= '0' && *text <= '9') {
    if (value < kLimit) {
      value = value * 10 + (*text - '0');
    }
    hadDigits = true;
    ++text;
  }
  return negative ? -value : value;
}

std::int32_t readInt32(const char* text) {
  bool hadDigits = false;
  const std::int64_t value = readDecimal(text, hadDigits);
  if (value > std::numeric_limits<std::int32_t>::max()) {
    return std::numeric_limits<std::int32_t>::max();
  }
  if (value < std::numeric_limits<std::int32_t>::min()) {
    return std::numeric_limits<std::int32_t>::min();
  }
  return static_cast<std::int32_t>(value);
}

// Length of the line starting at source: through the first newline, or to the end of the data, but at
// most kVideoSubTitleLineLength characters.
std::size_t lineLength(const char* source) {
  const std::size_t available = strnlen(source, kVideoSubTitleLineLength);
  const void* newline = std::memchr(source, '\n', available);
  return newline != nullptr ? static_cast<std::size_t>(static_cast<const char*>(newline) - source) + 1
                            : available;
}

// Reads the fields of one line in order. A field asked for after the data ran out makes the line fail.
class FieldReader {
 public:
  explicit FieldReader(const char* position) : position_(position) {}

  bool next(char* token, bool restOfLine = false) {
    if (position_ == nullptr) {
      missing_ = true;
      return false;
    }
    position_ = parseSAAToken(position_, token, restOfLine);
    return true;
  }
  bool missing() const { return missing_; }

 private:
  const char* position_;
  bool missing_ = false;
};

// Lines may be indented by blanks; players read them as if they were not.
std::size_t indentLength(const char* line) {
  return std::strspn(line, " \t");
}

// The script as the parse reads it: a byte-order mark decides the encoding (UTF-16 becomes UTF-8, whose
// name is kept in encoding) and a carriage return alone ends a line as a newline would. Carriage
// returns before a newline stay. False when the marked encoding does not decode.
bool prepareScript(std::string& bytes, std::string& encoding) {
  if (const std::optional<StringEncodings::ByteOrderMark> mark = StringEncodings::byteOrderMark(bytes)) {
    std::optional<std::string> text =
        StringEncodings::decode(std::string_view(bytes).substr(mark->length), mark->encoding);
    if (!text) {
      return false;
    }
    bytes = std::move(*text);
    encoding = "UTF-8";
  }
  for (std::size_t at = bytes.find('\r'); at != std::string::npos; at = bytes.find('\r', at + 1)) {
    if (at + 1 == bytes.size() || bytes[at + 1] != '\n') {
      bytes[at] = '\n';
    }
  }
  return true;
}

std::string lineFailure(const char* what, std::uint32_t lineNumber) {
  return std::string(what) + " in line " + std::to_string(lineNumber);
}

bool parseStyleLine(const char* line, std::size_t length, VideoSubTitleStyle& style, char* token) {
  // Exactly one character after "Style:" is skipped, normally the blank.
  FieldReader fields(length > kStylePrefixLength ? line + kStylePrefixLength + 1 : line + length);
  fields.next(token);
  style.m_name = token;
  fields.next(token);
  style.m_font_name = token;
  fields.next(token);
  style.m_font_size = std::strtod(token, nullptr);
  std::int32_t* const integers[] = {
      &style.m_primary_colour, &style.m_secondary_colour, &style.m_tertiary_colour, &style.m_back_colour,
      &style.m_bold,           &style.m_italic,           &style.m_border_style,    &style.m_outline,
      &style.m_shadow,         &style.m_alignment,        &style.m_margin_l,        &style.m_margin_r,
      &style.m_margin_v,       &style.m_alpha_level,      &style.m_encoding};
  for (std::int32_t* field : integers) {
    if (fields.next(token)) {
      *field = readInt32(token);
    }
  }
  return !fields.missing();
}

enum class DialogueResult { Read, NoComma, MissingFields, UnknownStyle };

DialogueResult parseDialogueLine(const char* line, std::size_t length, const VideoSubTitleArray& vsa,
                                 VideoSubTitleEntry& entry, char* token) {
  // The marked or layer field, from the tenth character through the first comma, is skipped.
  const char* afterPrefix = line + std::min(length, kDialoguePrefixLength);
  const char* comma = std::strchr(afterPrefix, ',');
  if (comma == nullptr) {
    return DialogueResult::NoComma;
  }
  FieldReader fields(comma + 1);
  fields.next(token);
  entry.m_start_ms = convertSAATimeToMS(token);
  fields.next(token);
  entry.m_end_ms = convertSAATimeToMS(token);
  if (!fields.next(token)) {
    return DialogueResult::MissingFields;
  }
  entry.m_style = videoSubTitle_findStyle(vsa, token);
  // A leading "*" is an old way of writing a style name; players look the name up without it.
  if (entry.m_style == nullptr && token[0] == '*') {
    entry.m_style = videoSubTitle_findStyle(vsa, token + 1);
  }
  if (entry.m_style == nullptr) {
    return DialogueResult::UnknownStyle;
  }
  fields.next(token);  // actor name
  std::int32_t* const margins[] = {&entry.m_margin_l, &entry.m_margin_r, &entry.m_margin_v};
  for (std::int32_t* margin : margins) {
    if (fields.next(token)) {
      *margin = readInt32(token);
    }
  }
  fields.next(token);  // effect
  if (fields.next(token, true)) {
    entry.m_text = token;
  }
  return fields.missing() ? DialogueResult::MissingFields : DialogueResult::Read;
}

}  // namespace

void videoSubTitle_initArray(VideoSubTitleArray& vsa) {
  vsa = VideoSubTitleArray{};
}

void videoSubTitle_freeArray(VideoSubTitleArray& vsa) {
  vsa.m_style_array.reset();
  vsa.m_array.reset();
  videoSubTitle_initArray(vsa);
}

int videoSubTitle_readFromFile(const std::string& path, VideoSubTitleArray& vsa,
                               std::uint32_t framesPerSecond, std::string* failure) {
  std::string bytes;
  if (!xpl_read_file(path, bytes)) {
    return kVideoSubTitleReadError;
  }
  videoSubTitle_freeArray(vsa);
  std::string encoding;
  if (!prepareScript(bytes, encoding)) {
    if (failure != nullptr) {
      *failure = "the script is not valid " + StringEncodings::byteOrderMark(bytes)->encoding;
    }
    return 0;
  }
  videoSubTitle_parseSAA(bytes.c_str(), vsa, failure);
  if (vsa.m_array != nullptr) {
    vsa.m_encoding = std::move(encoding);
  }
  bytes = std::string();
  videoSubTitle_calcFrames(vsa, framesPerSecond);
  return 0;
}

VideoSubTitleArray* videoSubTitle_parseSAA(const char* script, VideoSubTitleArray& vsa,
                                           std::string* failure) {
  // Pass 1: count the style and dialogue lines, so both tables are allocated once.
  std::uint32_t styleLines = 0;
  std::uint32_t dialogueLines = 0;
  for (const char* source = script; *source != '\0';) {
    const char* content = source + indentLength(source);
    if (xplText_strnicmp(content, kStylePrefix, kStylePrefixLength) == 0) {
      ++styleLines;
    } else if (xplText_strnicmp(content, kDialoguePrefix, kDialoguePrefixLength) == 0) {
      ++dialogueLines;
    }
    source += lineLength(source);
  }
  auto fail = [&](std::string why) -> VideoSubTitleArray* {
    videoSubTitle_freeArray(vsa);
    if (failure != nullptr) {
      *failure = std::move(why);
    }
    return nullptr;
  };
  if (dialogueLines == 0) {
    return fail("no dialogue line");
  }
  vsa.m_style_array = std::make_unique<VideoSubTitleStyle[]>(styleLines);
  vsa.m_array = std::make_unique<VideoSubTitleEntry[]>(dialogueLines);
  vsa.m_style_count = 0;
  vsa.m_count = 0;
  vsa.m_starts_ordered = true;

  // Pass 2: read the lines of both kinds into their tables, in file order.
  char line[kVideoSubTitleLineLength + 1];
  char token[kVideoSubTitleLineLength + 1];
  std::uint32_t lineNumber = 0;
  for (const char* source = script; parseSAALine(line, source) != nullptr;) {
    const std::size_t lineLengthRead = std::strlen(line);
    source += lineLengthRead;
    ++lineNumber;
    const std::size_t indent = indentLength(line);
    const char* content = line + indent;
    const std::size_t length = lineLengthRead - indent;
    if (xplText_strnicmp(content, kStylePrefix, kStylePrefixLength) == 0) {
      if (!parseStyleLine(content, length, vsa.m_style_array[vsa.m_style_count], token)) {
        return fail(lineFailure("style line lacks fields", lineNumber));
      }
      ++vsa.m_style_count;
    } else if (xplText_strnicmp(content, kDialoguePrefix, kDialoguePrefixLength) == 0) {
      VideoSubTitleEntry& entry = vsa.m_array[vsa.m_count];
      switch (parseDialogueLine(content, length, vsa, entry, token)) {
        case DialogueResult::NoComma:
          entry = VideoSubTitleEntry{};
          return nullptr;
        case DialogueResult::MissingFields:
          return fail(lineFailure("dialogue line lacks fields", lineNumber));
        case DialogueResult::UnknownStyle:
          return fail(lineFailure((std::string("unknown style \"") + token + "\"").c_str(), lineNumber));
        case DialogueResult::Read:
          break;
      }
      if (vsa.m_count > 0 && entry.m_start_ms < vsa.m_array[vsa.m_count - 1].m_start_ms) {
        vsa.m_starts_ordered = false;
      }
      ++vsa.m_count;
    }
  }
  return &vsa;
}

void videoSubTitle_calcFrames(VideoSubTitleArray& vsa, std::uint32_t framesPerSecond) {
  // Whole milliseconds per frame (16 at 60 frames per second); a rate of 0 has no frames.
  const std::uint32_t frameLength = framesPerSecond == 0 ? 0 : std::max(1000u / framesPerSecond, 1u);
  for (std::uint32_t i = 0; i < vsa.m_count; ++i) {
    VideoSubTitleEntry& entry = vsa.m_array[i];
    entry.m_start_frame = frameLength == 0 ? 0 : entry.m_start_ms / frameLength;
    entry.m_end_frame = frameLength == 0 ? 0 : entry.m_end_ms / frameLength;
  }
}

const VideoSubTitleStyle* videoSubTitle_findStyle(const VideoSubTitleArray& vsa, const char* name) {
  const std::size_t length = std::strlen(name);
  for (std::uint32_t i = 0; i < vsa.m_style_count; ++i) {
    if (xplText_strnicmp(vsa.m_style_array[i].m_name.c_str(), name, length) == 0) {
      return &vsa.m_style_array[i];
    }
  }
  return nullptr;
}

std::uint32_t videoSubTitle_findEntryByTime(const VideoSubTitleArray& vsa, std::uint32_t milliseconds,
                                            bool useHint) {
  std::uint32_t start = 0;
  if (useHint && vsa.m_current > 0 && vsa.m_current < vsa.m_count &&
      vsa.m_array[vsa.m_current].m_start_ms <= milliseconds) {
    start = vsa.m_current;
  }
  for (std::uint32_t i = start; i < vsa.m_count; ++i) {
    const VideoSubTitleEntry& entry = vsa.m_array[i];
    if (videoSubTitle_checkEntryByTime(entry, milliseconds)) {
      return i;
    }
    // Every later entry starts later still: none of them can show at this time.
    if (vsa.m_starts_ordered && entry.m_start_ms > milliseconds) {
      break;
    }
  }
  return kVideoSubTitleNoEntry;
}

bool videoSubTitle_checkEntryByTime(const VideoSubTitleEntry& entry, std::uint32_t milliseconds) {
  return entry.m_start_ms <= milliseconds && milliseconds <= entry.m_end_ms;
}

bool videoSubTitle_checkFrame(const VideoSubTitleEntry& entry, std::uint32_t frame) {
  return entry.m_start_frame <= frame && frame <= entry.m_end_frame;
}

bool videoSubTitle_processFrame(VideoSubTitleArray& vsa, std::uint32_t frame) {
  if (vsa.m_current < vsa.m_count && videoSubTitle_checkFrame(vsa.m_array[vsa.m_current], frame)) {
    return true;
  }
  vsa.m_current = kVideoSubTitleNoEntry;
  if (vsa.m_next < vsa.m_count && videoSubTitle_checkFrame(vsa.m_array[vsa.m_next], frame)) {
    vsa.m_current = vsa.m_next;
    vsa.m_next = vsa.m_next + 1 < vsa.m_count ? vsa.m_next + 1 : kVideoSubTitleNoEntry;
    return true;
  }
  return false;
}

char* parseSAALine(char* line, const char* source) {
  const std::size_t length = lineLength(source);
  std::memcpy(line, source, length);
  line[length] = '\0';
  return length == 0 ? nullptr : line;
}

const char* parseSAAToken(const char* position, char* token, bool restOfLine) {
  token[0] = '\0';
  if (*position == '\0') {
    return nullptr;
  }
  const std::size_t length =
      std::min(std::strcspn(position, restOfLine ? "\n" : ",\n"), kVideoSubTitleLineLength);
  std::memcpy(token, position, length);
  token[length] = '\0';
  const char* next = position + length;
  return *next == '\n' || (*next == ',' && !restOfLine) ? next + 1 : next;
}

std::uint32_t convertSAATimeToMS(const char* text) {
  static constexpr std::int64_t kScale[] = {3600000, 60000, 1000, 10};
  std::int64_t total = 0;
  for (std::size_t part = 0; part < 4; ++part) {
    if (part > 0) {
      // Exactly one separator character of any kind.
      if (*text == '\0') {
        break;
      }
      ++text;
    }
    bool hadDigits = false;
    const std::int64_t value = readDecimal(text, hadDigits);
    if (!hadDigits) {
      break;
    }
    // Clamped so that absurd field values wrap like the 32-bit arithmetic they feed, without overflow.
    total += (value % 100000000) * kScale[part];
  }
  return static_cast<std::uint32_t>(static_cast<std::uint64_t>(total));
}

}  // namespace qva
