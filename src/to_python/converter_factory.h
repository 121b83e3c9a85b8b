// Chooses the converter for a data array by its type and whether it has exactly one element.
//
// The two tables are filled on first use, from any thread, and never change afterwards; converters
// live as long as the process. registry.cpp is the page that lists them.
#pragma once

#include <map>
#include <memory>

#include "to_python/convert_zda_to_py_object.h"

namespace PythonZorvanDataArray::detail {

class ConvertZDAToPyObjectFactory {
 public:
  using Converter = std::shared_ptr<ConvertZDAToPyObject>;

  // Each returns an empty pointer, with TypeError set, when there is no such converter. With
  // forceScalar the number of elements does not matter.
  static Converter getConverter(const foundation::zorvandata::Array& array, bool forceScalar);
  static Converter getScalarConverter(foundation::zorvandata::ArrayType type);
  static Converter getMatrixConverter(foundation::zorvandata::ArrayType type);

  // New reference to an array's object: what getConverter's converter makes of it. NULL with a
  // Python error set.
  static PyObject* convertArray(const foundation::zorvandata::Array& array);
  // New reference to an element of a container, converted by the converter that getConverter has
  // for it; NULL with a Python error set. Makes no array of the element where it can.
  static PyObject* convertElement(const foundation::zorvandata::ItemList& items, size_t i);

 private:
  using ConverterMap = std::map<foundation::zorvandata::ArrayType, Converter>;
  struct ConverterMaps {
    ConverterMap scalar;  // for arrays of one element
    ConverterMap matrix;  // for arrays of none or several
  };

  static ConverterMaps initConverterMap();
  static const ConverterMaps& converterMaps();
  // Held by the maps; an empty one, with TypeError set, for none.
  static const Converter& find(foundation::zorvandata::ArrayType type, bool isScalar);
  static const Converter& find(const foundation::zorvandata::Array& array, bool forceScalar);
};

// The TypeErrors for arrays that have no counterpart in Python.
void setSparseError();
void setUnsupportedTypeError(foundation::zorvandata::ArrayType type);

}  // namespace PythonZorvanDataArray::detail
