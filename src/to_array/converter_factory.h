// The choice of a converter for a Python object: by the name of its exact type, else by what it
// can do.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "to_array/convert_to_zorvan_data_array.h"

namespace PythonZorvanDataArray::detail {

class ConvertToZorvanDataArrayFactory {
 public:
  // One row of the registry.
  struct Entry {
    std::shared_ptr<const ConvertToZorvanDataArray> converter;
    // Tells a real instance from a class that merely bears the name; NULL where the converter
    // finds out for itself.
    bool (*isReal)(PyObject*) = nullptr;
  };
  using ConverterMap = std::map<std::string, Entry>;

  // The converter of the object's type, which lives as long as the process and serves all instances
  // of exactly that type. Throws PythonErrorSet with TypeError set for a type without a way over.
  static const ConvertToZorvanDataArray& findConverter(PyObject* obj);

 private:
  // The rows; see registry.cpp.
  static ConverterMap initConverterMap();
  static const ConverterMap& converterMap();
  // The key under which the object's type is looked up.
  static std::string getTypeName(PyObject* obj);
};

}  // namespace PythonZorvanDataArray::detail
