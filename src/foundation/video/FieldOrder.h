#pragma once

namespace qva {

// How a frame is scanned: whole, or as two fields of alternate lines at different instants. The upper
// field holds the lines 0, 2, 4 … counted from the top, the lower field lines 1, 3, 5 ….
enum class FieldOrder { Progressive, UpperFirst, LowerFirst };

}  // namespace qva
