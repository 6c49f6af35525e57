#pragma once

#include <cstdint>
#include <span>

namespace qva {

// Expands one PackBits row: a header byte n of 0…127 copies the next n + 1 bytes, -127…-1 repeats the
// next byte 1 - n times, -128 does nothing. True when the row is filled exactly: a run that would pass
// the end of the row, or packed bytes that end before it is full, make it false. Bytes left after the
// row is full are ignored.
bool unpackBits(std::span<const std::uint8_t> packed, std::span<std::uint8_t> row);

// The fewest packed bytes that can fill a row of that many bytes (runs of 128 at two bytes each).
std::size_t minimumPackedBytes(std::size_t rowBytes);

}  // namespace qva
