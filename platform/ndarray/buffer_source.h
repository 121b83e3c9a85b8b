// Any exported buffer, seen as column-major elements of one of the element types.
//
// Holds the buffer from construction to destruction, so its memory neither moves nor goes away;
// both need the interpreter lock. Construction throws PythonError with what the exporter raised,
// TypeError for elements without counterpart, BufferError for a layout that cannot be read,
// ValueError for sizes that cannot be.
#pragma once

#include "element_types.h"
#include "python_api.h"
#include "shape.h"
#include "strided_copy.h"

namespace ndarray {

class BufferSource {
 public:
  explicit BufferSource(PyObject* exporter);
  BufferSource(const BufferSource&) = delete;
  BufferSource& operator=(const BufferSource&) = delete;
  ~BufferSource() { PyBuffer_Release(&view_); }

  ElementType type() const { return type_; }
  // At least two.
  const Extents& extents() const { return extents_; }
  std::size_t byteCount() const { return byte_count_; }
  // Whether the buffer has no dimensions of its own.
  bool isScalar() const { return view_.ndim == 0; }

  // The elements where they lie, or null when they first have to be copied: when they are not
  // aligned, not native, not in column-major order, or bools other than 0 and 1.
  const void* elements() const { return in_place_ ? view_.buf : nullptr; }

  // Writes byteCount() bytes in column-major order.
  void copyTo(void* out) const noexcept;

 private:
  void readLayout();
  bool isReadableInPlace(ElementConversion conversion) const;

  Py_buffer view_{};
  ElementType type_{};
  CopyFunction copy_ = nullptr;
  Extents extents_;
  Strides strides_;
  std::size_t byte_count_ = 0;
  bool in_place_ = false;
};

}  // namespace ndarray
