#pragma once

#include <cstddef>

namespace qva {

// Compares at most n characters of two zero-terminated strings, ASCII letters without regard to case.
// Negative, zero or positive like strncmp; a string that ends early compares lower.
int xplText_strnicmp(const char* first, const char* second, std::size_t n);

}  // namespace qva
