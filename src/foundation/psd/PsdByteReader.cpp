#include "foundation/psd/PsdByteReader.h"

#include <algorithm>

#include "foundation/psd/PsdFormatError.h"

namespace qva {

const std::uint8_t* PsdByteReader::take(std::size_t count, const char* what) {
  if (count > remaining()) {
    throw PsdFormatError(std::string("the document ends inside the ") + what);
  }
  const std::uint8_t* start = bytes_.data() + position_;
  position_ += count;
  return start;
}

std::uint8_t PsdByteReader::u8(const char* what) {
  return *take(1, what);
}

std::uint16_t PsdByteReader::u16(const char* what) {
  const std::uint8_t* b = take(2, what);
  return static_cast<std::uint16_t>(b[0] << 8 | b[1]);
}

std::int16_t PsdByteReader::i16(const char* what) {
  return static_cast<std::int16_t>(u16(what));
}

std::uint32_t PsdByteReader::u32(const char* what) {
  const std::uint8_t* b = take(4, what);
  return std::uint32_t{b[0]} << 24 | std::uint32_t{b[1]} << 16 | std::uint32_t{b[2]} << 8 | b[3];
}

std::int32_t PsdByteReader::i32(const char* what) {
  return static_cast<std::int32_t>(u32(what));
}

std::string PsdByteReader::fourCC(const char* what) {
  const std::uint8_t* b = take(4, what);
  return std::string(b, b + 4);
}

std::span<const std::uint8_t> PsdByteReader::bytes(std::size_t count, const char* what) {
  const std::uint8_t* start = take(count, what);
  return {start, count};
}

void PsdByteReader::alignTo(std::size_t alignment) {
  const std::size_t misalignment = position_ % alignment;
  if (misalignment != 0) {
    position_ += std::min(alignment - misalignment, remaining());
  }
}

}  // namespace qva
