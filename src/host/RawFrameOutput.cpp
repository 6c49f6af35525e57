#include "host/RawFrameOutput.h"

#include <cerrno>
#include <csignal>

namespace qva {

RawFrameOutput::RawFrameOutput(std::FILE* stream) : stream_(stream) {
  // A reader that goes away is a write error here, not a signal that ends the process.
  std::signal(SIGPIPE, SIG_IGN);
}

std::string RawFrameOutput::writeFrame(const PixelBufferView& frame) {
  const std::size_t length = static_cast<std::size_t>(frame.width) * 4;
  for (int y = 0; y < frame.height; ++y) {
    if (std::fwrite(frame.bytes + static_cast<std::size_t>(y) * frame.rowBytes, 1, length, stream_) !=
        length) {
      return writeError();
    }
  }
  return {};
}

std::string RawFrameOutput::finish() {
  return std::fflush(stream_) == 0 ? std::string() : writeError();
}

std::string RawFrameOutput::writeError() {
  return errno == EPIPE ? kReaderClosed : "cannot write frames to standard output";
}

}  // namespace qva
