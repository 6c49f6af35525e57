#pragma once

#include <string>

extern "C" {
#include <libavutil/error.h>
}

namespace qva {

// What an FFmpeg error code means, in FFmpeg's words.
inline std::string ffmpegErrorText(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

}  // namespace qva
