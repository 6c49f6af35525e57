#include "foundation/media/IncrementalMovieLoader.h"

#include "foundation/media/MemoryMovieSource.h"

namespace qva {

IncrementalMovieLoader::IncrementalMovieLoader(MemoryMovieSource& source, std::size_t bytesPerStep)
    : source_(source), bytesPerStep_(bytesPerStep), thread_([this] { run(); }) {}

IncrementalMovieLoader::~IncrementalMovieLoader() {
  stopping_.store(true, std::memory_order_release);
  wake_.release();
  thread_.join();
}

void IncrementalMovieLoader::run() {
  for (;;) {
    wake_.acquire();
    if (stopping_.load(std::memory_order_acquire)) {
      return;
    }
    // The next step starts where the loaded bytes end; a failed read leaves the rest to the file.
    source_.loadThrough(source_.loadedBytes() + bytesPerStep_);
    stepsLoaded_.fetch_add(1, std::memory_order_acq_rel);
  }
}

}  // namespace qva
