// float, complex, int and bool become 1-by-1 arrays; None is refused.
#pragma once

#include <complex>

#include "to_array/convert_to_zorvan_data_array.h"

namespace PythonZorvanDataArray::detail {

// A 1-by-1 array of element type T.
template <class T>
class PyScalarConverter : public ConvertToZorvanDataArray {
 public:
  std::optional<foundation::zorvandata::Array> convert(PyObject* obj,
                                                       const std::optional<Options>&) override {
    if (!obj) return std::nullopt;
    return getFactory().createScalar(read(obj));
  }
  bool appendTo(foundation::zorvandata::ItemList& items, PyObject* obj,
                const std::optional<Options>&) override {
    items.appendScalar(read(obj));
    return true;
  }

 protected:
  virtual T read(PyObject* obj) const = 0;
};

class PyFloatToDouble final : public PyScalarConverter<double> {
 protected:
  double read(PyObject* obj) const override { return PyFloat_AsDouble(obj); }
};

class PyComplexToDouble final : public PyScalarConverter<std::complex<double>> {
 protected:
  std::complex<double> read(PyObject* obj) const override {
    return {PyComplex_RealAsDouble(obj), PyComplex_ImagAsDouble(obj)};
  }
};

// INT64. An int beyond 64 bits gives -1 with OverflowError left pending: `convert` does not look,
// whoever takes the value must; `appendTo` fails.
class PyIntToInt64 final : public PyScalarConverter<int64_t> {
 public:
  bool appendTo(foundation::zorvandata::ItemList& items, PyObject* obj,
                const std::optional<Options>&) override {
    const int64_t value = read(obj);
    if (value == -1 && PyErr_Occurred()) return false;
    items.appendScalar(value);
    return true;
  }

 protected:
  int64_t read(PyObject* obj) const override { return PyLong_AsLongLong(obj); }
};

class PyBoolToLogical final : public PyScalarConverter<bool> {
 protected:
  bool read(PyObject* obj) const override { return PyObject_IsTrue(obj) != 0; }
};

// Always TypeError.
class PyNoneToError final : public ConvertToZorvanDataArray {
 public:
  std::optional<foundation::zorvandata::Array> convert(PyObject* obj,
                                                       const std::optional<Options>&) override;
};

// For objects without a way over: whoever chose it has set the error.
class NullToError final : public ConvertToZorvanDataArray {};

}  // namespace PythonZorvanDataArray::detail
