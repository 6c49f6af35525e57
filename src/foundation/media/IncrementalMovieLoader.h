#pragma once

#include <atomic>
#include <cstddef>
#include <semaphore>
#include <thread>

namespace qva {

class MemoryMovieSource;

// The thread that loads a movie into memory ahead of its play position: each post() wakes it to load
// one more step of bytes. Destroying the loader ends the thread after the step it is loading.
class IncrementalMovieLoader {
 public:
  IncrementalMovieLoader(MemoryMovieSource& source, std::size_t bytesPerStep);
  ~IncrementalMovieLoader();
  IncrementalMovieLoader(const IncrementalMovieLoader&) = delete;
  IncrementalMovieLoader& operator=(const IncrementalMovieLoader&) = delete;

  void post() { wake_.release(); }
  // Steps loaded so far (for tests and statistics).
  std::size_t stepsLoaded() const { return stepsLoaded_.load(std::memory_order_acquire); }

 private:
  void run();

  MemoryMovieSource& source_;
  std::size_t bytesPerStep_;
  std::counting_semaphore<> wake_{0};
  std::atomic<bool> stopping_{false};
  std::atomic<std::size_t> stepsLoaded_{0};
  std::thread thread_;
};

}  // namespace qva
