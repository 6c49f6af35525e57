#pragma once

#include <malloc.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>

namespace qva {

// The process's memory at one moment: resident pages as the kernel counts them, and the bytes the
// allocator has handed out. The memory benchmarks report the growth of both between two samples.
struct ProcessMemory {
  std::size_t residentBytes = 0;
  std::size_t heapBytes = 0;

  static ProcessMemory sample() {
    std::size_t totalPages = 0;
    std::size_t residentPages = 0;
    std::ifstream("/proc/self/statm") >> totalPages >> residentPages;
    return {residentPages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)), mallinfo2().uordblks};
  }

  // Growth since the earlier sample, per item, as a double for a benchmark counter.
  static double perItem(std::size_t before, std::size_t after, std::size_t items) {
    return after > before ? static_cast<double>(after - before) / static_cast<double>(items) : 0.0;
  }
};

}  // namespace qva
