// Diagnostic printing of data arrays and their type codes. Nothing is kept; failures are those of
// the stream.
#pragma once

#include <ostream>

#include "zorvandata/typed_array.h"

namespace PythonZorvanDataArray::detail {

// "ArrayType: " and the type's integer code on a line of its own; flushes.
void printArrayTypeAsInt(foundation::zorvandata::ArrayType type, std::ostream& out);
void printArrayTypeAsInt(const foundation::zorvandata::Array& array, std::ostream& out);

// Name and code of every type that arrays commonly have, to compare with.
void printComparisonArrayTypesAsInt(std::ostream& out);

// Prints what it visits as "DOUBLE, 2-by-3" on a line of its own; for applyVisitor of the
// data-array library. The stream must outlive it.
class PrintVisitor {
 public:
  explicit PrintVisitor(std::ostream& out) : out_(out) {}

  template <class T>
  void operator()(const foundation::zorvandata::TypedArray<T>& array) const {
    print(array);
  }

 private:
  void print(const foundation::zorvandata::Array& array) const;

  std::ostream& out_;
};

}  // namespace PythonZorvanDataArray::detail
