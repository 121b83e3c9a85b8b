// The choice of a converter for a Python object: by the name of its exact type, else by what it
// can do.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "to_array/convert_to_zorvan_data_array.h"

namespace PythonZorvanDataArray {

// Converts any supported object. Empty on failure, with a Python error set.
std::optional<foundation::zorvandata::Array> createZorvanDataArray(PyObject* obj);

namespace detail {

std::optional<foundation::zorvandata::Array> createZDA(
    PyObject* obj, const std::optional<ConvertToZorvanDataArray::Options>& options);

// Converts the object into the next element of a container; false on failure, with a Python error
// set.
bool appendZDA(foundation::zorvandata::ItemList& items, PyObject* obj,
               const std::optional<ConvertToZorvanDataArray::Options>& options = std::nullopt);

class ConvertToZorvanDataArrayFactory {
 public:
  // One row of the registry.
  struct Entry {
    std::shared_ptr<ConvertToZorvanDataArray> converter;
    // Tells a real instance from a class that merely bears the name; NULL where the converter
    // finds out for itself.
    bool (*isReal)(PyObject*) = nullptr;
  };
  using ConverterMap = std::map<std::string, Entry>;

  // Never null. For an object without a way over it is the converter under "NULL", which only
  // fails, and a Python error is set.
  static std::shared_ptr<ConvertToZorvanDataArray> getConverter(PyObject* obj);

  // The key under which the object's type is looked up. "" for NULL and "NULL" for a type without
  // a usable name, with TypeError set.
  static std::string getTypeName(PyObject* obj);

  static bool hasConverter(const std::string& name);

  // The converter that getConverter returns, which lives as long as the process.
  static ConvertToZorvanDataArray& findConverter(PyObject* obj);

 private:
  // The rows; see registry.cpp.
  static ConverterMap initConverterMap();
  static const ConverterMap& converterMap();
  static const std::shared_ptr<ConvertToZorvanDataArray>& find(PyObject* obj);
};

}  // namespace detail
}  // namespace PythonZorvanDataArray
