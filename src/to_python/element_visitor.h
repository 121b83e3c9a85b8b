// The element at a position of any array as a Python object.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "to_python/convert_zda_to_py_object.h"
#include "to_python/numeric_converters.h"
#include "zorvandata/visitor.h"

namespace PythonZorvanDataArray::detail {

// Applied to an array by foundation::zorvandata::applyVisitor. Each call returns a new reference,
// or NULL with a Python error set.
//
//   numbers and logicals   the element as convertNumericElem has it
//   strings                the string, None for a missing one
//   char                   the whole array as one str
//   cell                   the element by the rule for an array of its own
//   all others             ValueError: no dictionary can have them as keys or values
class ConvertElementToPythonVisitor {
 public:
  // `converter` converts what is no plain number: strings by position, char arrays whole.
  ConvertElementToPythonVisitor(size_t index,
                                const std::shared_ptr<ConvertZDAToPyObject>& converter)
      : index_(index), converter_(converter) {}

  template <class T>
  PyObject* operator()(const foundation::zorvandata::TypedArray<T>& array) const {
    using foundation::zorvandata::ArrayType;
    constexpr ArrayType kType = foundation::zorvandata::TypedArray<T>::kType;
    if constexpr (kType == ArrayType::CHAR) {
      return converter_->convert(array);
    } else if constexpr (isDense(kType)) {
      return convertNumericElem(array[index_]);
    } else if constexpr (kType == ArrayType::ZORVAN_STRING) {
      return converter_->convertItem(array.impl().items(), index_);
    } else if constexpr (kType == ArrayType::CELL) {
      return convertCellElement(array.impl().items(), index_);
    } else {
      return refuse();
    }
  }

 private:
  static PyObject* convertCellElement(const foundation::zorvandata::ItemList& items, size_t i);
  static PyObject* refuse();

  size_t index_;
  const std::shared_ptr<ConvertZDAToPyObject>& converter_;
};

}  // namespace PythonZorvanDataArray::detail
