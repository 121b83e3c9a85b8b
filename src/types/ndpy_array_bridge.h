// Binding to the package of multi-dimensional Python arrays through its capsule, and the way of
// elements between those arrays, exported buffers and data arrays without copying them.
//
// The globals are set once at start-up and live as long as the process. Everything runs with the
// interpreter lock held. The conversions require that start-up succeeded; they throw std::bad_alloc
// and the exceptions of the data-array library.
#pragma once

#include <optional>

#include "util/python_api.h"
// Needs Python.h as the line above includes it.
#include "ndarray/ndarray_capi.h"
#include "zorvandata/array.h"

namespace PythonNdPyArray {

extern const NdArrayCapi* ndpyCapsule;  // NULL until start-up succeeded
extern PyObject* ndpyDouble;            // the class `double` of the package

// Imports the package and fills the globals; throws std::runtime_error with the reason, a Python
// error may then be pending too.
void initPythonNdPyArray();

// New reference to the attribute; throws std::runtime_error with AttributeError pending.
PyObject* initTypeObject(PyObject* module, const char* name);

bool exportsBuffer(PyObject* object);

// A data array on the elements of an array of the package, which it keeps alive. Nothing when the
// object is no such array or has another element type; no Python error is set.
std::optional<foundation::zorvandata::Array> arrayFromTypedObject(
    PyObject* object, foundation::zorvandata::ArrayType type);

// A data array on the elements of an exported buffer, which stays exported as long as it lives.
// Nothing, with a Python error set, when the buffer cannot be had or read.
std::optional<foundation::zorvandata::Array> arrayFromBuffer(PyObject* object);

// New reference to an array of the package with the elements of a numeric or logical array, NULL
// with a Python error set. It takes over the memory when no other array or buffer shares it and
// Python may write there, and copies otherwise: whoever converts lets go of the data array
// afterwards, for Python code may change those elements.
PyObject* ndArrayFromArray(const foundation::zorvandata::Array& array);

}  // namespace PythonNdPyArray
