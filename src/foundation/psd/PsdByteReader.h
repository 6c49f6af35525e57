#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace qva {

// A cursor over big-endian document bytes. Every read is checked against the end of its span and
// throws PsdFormatError naming what was being read, so no read ever leaves the bytes it was given.
class PsdByteReader {
 public:
  explicit PsdByteReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  std::size_t position() const { return position_; }
  std::size_t remaining() const { return bytes_.size() - position_; }
  bool atEnd() const { return position_ == bytes_.size(); }

  std::uint8_t u8(const char* what);
  std::uint16_t u16(const char* what);
  std::int16_t i16(const char* what);
  std::uint32_t u32(const char* what);
  std::int32_t i32(const char* what);
  // Four bytes as text, such as a signature or a block key.
  std::string fourCC(const char* what);
  // The next count bytes, consumed.
  std::span<const std::uint8_t> bytes(std::size_t count, const char* what);
  void skip(std::size_t count, const char* what) { bytes(count, what); }
  // A reader over the next count bytes, which this reader skips: a section with its own length.
  PsdByteReader section(std::size_t count, const char* what) { return PsdByteReader(bytes(count, what)); }
  // Skips up to the next multiple of alignment counted from the start, or to the end when that is nearer.
  void alignTo(std::size_t alignment);

 private:
  const std::uint8_t* take(std::size_t count, const char* what);

  std::span<const std::uint8_t> bytes_;
  std::size_t position_ = 0;
};

}  // namespace qva
