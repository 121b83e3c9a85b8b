// Reads strided memory into contiguous column-major memory, converting each element on its way.
// One pass over the source, no allocation, cannot fail.
#pragma once

#include <cstddef>

namespace ndarray {

// `dimensions` extents and strides (in bytes, of any sign) that start at `base`. At most
// kMaxDimensions of them. Nothing needs to be aligned.
struct StridedLayout {
  const char* base;
  std::size_t dimensions;
  const std::ptrdiff_t* extents;
  const std::ptrdiff_t* strides;
};

using CopyFunction = void (*)(const StridedLayout& source, void* out) noexcept;

// What happens to an element between source and result.
enum class ElementConversion {
  kNone,
  kSwapBytes,      // of each component
  kWidenHalf,      // binary16 to float
  kWidenHalfSwap,  // the same from the other byte order
  kNormalizeBool,  // any non-zero byte to 1
};

// The function that copies elements of `components` times `component_size` bytes, as they lie in
// the source. Component sizes are 1, 2, 4 and 8, components 1 or 2; only single components are
// widened or normalized.
CopyFunction copyFunction(ElementConversion conversion, std::size_t component_size,
                          std::size_t components);

}  // namespace ndarray
