#pragma once

#include <string>

namespace qva {

// printf-style formatting into a string, for the log lines whose formats the patches keep.
std::string formatString(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace qva
