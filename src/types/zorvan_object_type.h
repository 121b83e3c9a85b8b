// The Python type zorvan.object: an engine value that has no Python counterpart.
//
// An instance is immutable once returned; indexing makes new ones that share its array. Everything
// runs with the interpreter lock held.
#pragma once

#include <cstdint>
#include <vector>

#include "util/python_api.h"
#include "zorvandata/array_factory.h"

namespace PythonZorvanDataArray::detail {

// What an instance holds.
struct ZorvanObject {
  foundation::zorvandata::Array array;
  // The element that full indexing selected, 1-by-1; otherwise the parent's.
  foundation::zorvandata::Array element;
  int32_t typeCode = 0;
  foundation::zorvandata::standalone::ClientArrayFactory factory;
  std::vector<size_t> dims;
  // Zero-based, one for each dimension indexed so far.
  std::vector<size_t> indices;
  // Extents of the dimensions not indexed yet; (1, 1) once all are.
  std::vector<size_t> remainingDims;
};

// NULL until start-up made it; then it lives as long as the process.
extern PyTypeObject* zorvanObjectType;

// New reference to the type, NULL with a Python error set.
PyObject* makeZorvanObjectType();

// New reference to an instance of the type with an empty record, NULL with a Python error set. The
// arguments after the type are not looked at; Python code cannot reach this.
PyObject* zorvanObject_new_internal(PyTypeObject* type, PyObject* args, PyObject* kwds) noexcept;

// The record of an instance, valid as long as the instance; NULL for objects of any other type,
// whatever their type's name says.
ZorvanObject* zorvanObjectRecord(PyObject* object) noexcept;

// Whether two instances hold equal arrays and were indexed alike.
bool zorvanObjectsAreEqual(PyObject* a, PyObject* b);

}  // namespace PythonZorvanDataArray::detail
