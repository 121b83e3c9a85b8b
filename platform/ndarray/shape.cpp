#include "shape.h"

#include <algorithm>

namespace ndarray {

void padToTwoDimensions(Extents& extents) {
  if (extents.size() < 2) extents.insert(extents.begin(), 2 - extents.size(), 1);
}

std::size_t elementCount(const Extents& extents) {
  std::size_t count = 1;
  for (Py_ssize_t extent : extents) count *= static_cast<std::size_t>(extent);
  return count;
}

std::size_t checkedByteCount(const Extents& extents, std::size_t element_size) {
  if (extents.size() > kMaxDimensions) {
    raise(PyExc_ValueError, "an array cannot have more than " + std::to_string(kMaxDimensions) +
                                " dimensions, not " + std::to_string(extents.size()));
  }
  Py_ssize_t bytes = static_cast<Py_ssize_t>(element_size);
  bool empty = false;
  for (Py_ssize_t extent : extents) {
    if (extent < 0) raise(PyExc_ValueError, "negative extent in the size " + toText(extents));
    empty |= extent == 0;
    if (__builtin_mul_overflow(bytes, std::max<Py_ssize_t>(extent, 1), &bytes)) {
      raise(PyExc_ValueError, "an array of size " + toText(extents) + " is too large");
    }
  }
  return empty ? 0 : static_cast<std::size_t>(bytes);
}

Strides columnMajorStrides(const Extents& extents, std::size_t element_size) {
  Strides strides(extents.size());
  Py_ssize_t step = static_cast<Py_ssize_t>(element_size);
  for (std::size_t i = 0; i < extents.size(); ++i) {
    strides[i] = step;
    step *= std::max<Py_ssize_t>(extents[i], 1);
  }
  return strides;
}

Strides rowMajorStrides(const Extents& extents, std::size_t element_size) {
  const Extents reversed(extents.rbegin(), extents.rend());
  Strides strides = columnMajorStrides(reversed, element_size);
  std::reverse(strides.begin(), strides.end());
  return strides;
}

bool isColumnMajor(const Extents& extents, const Strides& strides, std::size_t element_size) {
  if (elementCount(extents) == 0) return true;
  const Strides wanted = columnMajorStrides(extents, element_size);
  for (std::size_t i = 0; i < extents.size(); ++i) {
    if (extents[i] > 1 && strides[i] != wanted[i]) return false;
  }
  return true;
}

std::string toText(const Extents& extents) {
  std::string text = "(";
  for (std::size_t i = 0; i < extents.size(); ++i) {
    text += (i == 0 ? "" : ", ") + std::to_string(extents[i]);
  }
  return text + (extents.size() == 1 ? ",)" : ")");
}

Ref toTuple(const Extents& extents) {
  Ref tuple = Ref::take(PyTuple_New(static_cast<Py_ssize_t>(extents.size())));
  for (std::size_t i = 0; i < extents.size(); ++i) {
    Ref item = Ref::take(PyLong_FromSsize_t(extents[i]));
    PyTuple_SetItem(tuple.get(), static_cast<Py_ssize_t>(i), item.release());
  }
  return tuple;
}

}  // namespace ndarray
