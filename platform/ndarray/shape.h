// Extents of column-major arrays. Failures set a Python exception and throw PythonError.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "python_api.h"

namespace ndarray {

// Never negative. An array has at least two.
using Extents = std::vector<Py_ssize_t>;
// In bytes, one for each extent.
using Strides = std::vector<Py_ssize_t>;

// As many as the buffer protocol allows; it also bounds every recursion over dimensions.
constexpr std::size_t kMaxDimensions = 64;

// No extents become 1-by-1, one extent N becomes 1-by-N.
void padToTwoDimensions(Extents& extents);

// The product; the extents must have passed checkedByteCount.
std::size_t elementCount(const Extents& extents);

// Bytes of an array of these extents. ValueError when there are more than kMaxDimensions of them,
// one is negative, or the product, zeros left out, exceeds what an index can reach.
std::size_t checkedByteCount(const Extents& extents, std::size_t element_size);

Strides columnMajorStrides(const Extents& extents, std::size_t element_size);
Strides rowMajorStrides(const Extents& extents, std::size_t element_size);

// Whether elements laid out so follow each other without a gap in column-major order.
bool isColumnMajor(const Extents& extents, const Strides& strides, std::size_t element_size);

// As Python writes a tuple: "(2, 3)".
std::string toText(const Extents& extents);
// A new tuple of ints.
Ref toTuple(const Extents& extents);

}  // namespace ndarray
