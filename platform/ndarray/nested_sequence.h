// Numbers out of nested Python sequences.
#pragma once

#include <vector>

#include "number.h"
#include "shape.h"

namespace ndarray {

struct NestedNumbers {
  Extents extents;              // one for each level of nesting, none for a single number
  std::vector<Number> numbers;  // in row-major order
  bool any_complex = false;
};

// Reads a number or rectangular nested sequences of numbers for elements of the class; text is
// neither. ValueError that names the place when the nesting is not rectangular. May run Python
// code, which may change the sequences: each is read as it was when its turn came.
NestedNumbers readNestedNumbers(PyObject* source, ElementClass target);

}  // namespace ndarray
