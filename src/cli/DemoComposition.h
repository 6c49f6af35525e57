#pragma once

namespace qva {

// The text of the built-in demo composition (examples/demo.qvc, compiled in).
const char* demoCompositionText();

}  // namespace qva
