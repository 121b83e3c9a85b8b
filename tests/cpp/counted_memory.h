// Counts the memory that the process allocates, be it by operator new or by realloc.
#pragma once

#include <cstddef>
#include <functional>

namespace counted {

// The most that is held at once while something is done, beyond what was held before.
size_t peakOf(const std::function<void()>& something);

}  // namespace counted
