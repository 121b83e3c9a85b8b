// Converter of engine objects: by class name to the Python value they stand for, all others to
// zorvan.object.
#pragma once

#include "to_python/convert_zda_to_py_object.h"

namespace PythonZorvanDataArray::detail {

class ZorvanObjectToPyObject : public ConvertZDAToPyObject {
 public:
  PyObject* convert(const foundation::zorvandata::Array& array) const override;

 private:
  PyObject* convertValueObject(const foundation::zorvandata::Array& array) const;
  // A zorvan.dictionary. ValueError for one without keys, with other counts of keys and values, or
  // with keys or values that are structs, objects or enumerations; TypeError for a key that cannot
  // be hashed.
  PyObject* convertDictionary(const foundation::zorvandata::Array& array) const;
  // A zorvan.object on the array as it is.
  PyObject* convertToGenericZorvanDotObject(const foundation::zorvandata::Array& array) const;
};

}  // namespace PythonZorvanDataArray::detail
