// Limits that hold for every array, whoever made it.
#pragma once

namespace foundation::zorvandata {

// Levels of arrays within arrays, the outermost included; no array goes deeper, however it was
// made. Low enough that recursion over them is safe on a 512 KiB stack. The Python conversions are
// bound by the same number.
constexpr int kMaxNesting = 256;

}  // namespace foundation::zorvandata
