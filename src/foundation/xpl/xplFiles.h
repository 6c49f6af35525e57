#pragma once

#include <string>

namespace qva {

// Reads a whole file into bytes; the string's own terminating zero ends the data for parsers that scan
// to a zero byte. False, with bytes left empty, when the file cannot be opened or read (a folder, no
// permission, a file that vanished).
bool xpl_read_file(const std::string& path, std::string& bytes);

}  // namespace qva
