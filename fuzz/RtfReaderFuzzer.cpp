// Feeds arbitrary bytes to the RTF reader, then writes what it read and reads that again: the writer's
// output must always read back without error to the same text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "foundation/rtf/RtfReader.h"
#include "foundation/rtf/RtfWriter.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view document(reinterpret_cast<const char*>(data), size);
  qva::RtfReader::Result result = qva::RtfReader::read(document);
  for (const qva::AttributedString::Run& run : result.text.runs()) {
    (void)result.text.attributesAt(run.location);
  }
  qva::RtfReader::Result again = qva::RtfReader::read(qva::RtfWriter::write(result.text));
  if (again.error || again.text.text() != result.text.text()) {
    std::abort();
  }
  return 0;
}
