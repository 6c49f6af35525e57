#pragma once

#include <cstddef>
#include <string>

namespace qva {

// The most xpl_read_file reads: room for subtitle files of a hundred thousand long lines, while a larger
// read would hold its caller, often the host's thread, and the memory for long.
constexpr std::size_t kReadFileLimit = std::size_t{256} << 20;

// Reads a whole regular file into bytes; the string's own terminating zero ends the data for parsers
// that scan to a zero byte. False, with bytes left empty and the reason in error when one is given, for
// anything but a regular file (a folder, a device such as /dev/zero, a FIFO, which is never waited on),
// a file that cannot be opened or read, or one of more than limit bytes, which also gets a line in the
// process log.
bool xpl_read_file(const std::string& path, std::string& bytes, std::string* error = nullptr,
                   std::size_t limit = kReadFileLimit);

}  // namespace qva
