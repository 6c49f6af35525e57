#pragma once

namespace qva {

// Where a movie's bytes come from while it plays: read from disk as decoding needs them, read whole
// into memory when it opens, or read into memory by a background thread ahead of the play position.
enum class MovieLoadMode { PrerollOnly = 0, ForceIntoMemory = 1, Incremental = 2 };

}  // namespace qva
