// Feeds arbitrary bytes to the SubStation Alpha reader as a whole script, then asks the parsed tables
// every question the Video Subtitler asks.
#include <cstddef>
#include <cstdint>
#include <string>

#include "foundation/subtitles/VideoSubTitle.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string script(reinterpret_cast<const char*>(data), size);
  qva::VideoSubTitleArray vsa;
  qva::videoSubTitle_initArray(vsa);
  std::string failure;
  qva::videoSubTitle_parseSAA(script.c_str(), vsa, &failure);
  qva::videoSubTitle_calcFrames(vsa, size % 2 == 0 ? 60 : 0);
  for (std::uint32_t i = 0; i < vsa.m_count; ++i) {
    const qva::VideoSubTitleEntry& entry = vsa.m_array[i];
    vsa.m_current = qva::videoSubTitle_findEntryByTime(vsa, entry.m_start_ms, true);
    qva::videoSubTitle_findEntryByTime(vsa, entry.m_end_ms + 1, false);
    qva::videoSubTitle_processFrame(vsa, entry.m_start_frame);
    if (entry.m_style != nullptr) {
      qva::videoSubTitle_findStyle(vsa, entry.m_style->m_name.c_str());
    }
  }
  qva::convertSAATimeToMS(script.c_str());
  qva::videoSubTitle_freeArray(vsa);
  return 0;
}
