// Limits that hold for every array, whoever made it.
#pragma once

namespace foundation::zorvandata {

// Arrays within arrays, counting the outermost. Low enough that recursion over them is safe on a
// 512 KiB stack; messages and the Python conversions are bound by the same number.
constexpr int kMaxNesting = 256;

}  // namespace foundation::zorvandata
