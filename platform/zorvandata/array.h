// Array: a value handle on a typed, multi-dimensional, column-major value.
//
// Copies share the value; writing through a handle whose value is shared detaches it first. Every
// function throws an Exception of exception.h on misuse and then has changed nothing. Not
// thread-safe: handles on one value stay on one thread at a time.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "zorvandata/dimensions.h"
#include "zorvandata/element_types.h"

namespace foundation::zorvandata {

class ArrayImpl;
class ArrayElementRef;
class ArrayReferenceExt;

class Array {
 public:
  // No array: type UNKNOWN, 0-by-0.
  Array() noexcept = default;
  Array(const Array& other) noexcept;
  Array(Array&& other) noexcept : impl_(std::exchange(other.impl_, nullptr)) {}
  Array& operator=(Array other) noexcept {
    std::swap(impl_, other.impl_);
    return *this;
  }
  ~Array();

  // Takes over one reference on the value.
  static Array adopt(ArrayImpl* impl) noexcept;
  // A further handle on a value.
  static Array share(const ArrayImpl& impl) noexcept;

  ArrayType getType() const;
  std::vector<size_t> getDimensions() const;
  size_t getNumberOfElements() const;
  bool isEmpty() const { return getNumberOfElements() == 0; }

  // The element at a linear index; throws EArrayIndexOutOfRange. The references are valid while
  // this handle is.
  ArrayReferenceExt operator[](size_t index) const;
  ArrayElementRef operator[](size_t index);

  // The same dimensions without a copy.
  const Dimensions& dimensions() const;
  // The value behind the handle, for reading; and, detached, for writing.
  const ArrayImpl& impl() const;
  ArrayImpl& mutableImpl();
  // True when both handles are on one value.
  bool sharesWith(const Array& other) const { return impl_ == other.impl_; }

 private:
  ArrayImpl* impl_ = nullptr;
};

// Deep equality of type, class, names, dimensions and every element. Numbers compare as numbers (a
// NaN equals nothing), except that a value always equals itself.
bool operator==(const Array& a, const Array& b);
inline bool operator!=(const Array& a, const Array& b) { return !(a == b); }

bool isSparse(const Array& array);

}  // namespace foundation::zorvandata
