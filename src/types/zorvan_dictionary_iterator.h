// The Python type zorvan.dictionary_iter: what iterates over the keys of a zorvan.dictionary.
//
// Everything runs with the interpreter lock held; nothing here throws.
#pragma once

#include "util/python_api.h"

namespace PythonZorvanDataArray::detail {

// NULL until start-up made it; then it lives as long as the process.
extern PyTypeObject* zorvanDictionaryIter_Type;

// New reference to the type, NULL with a Python error set.
PyObject* makeZorvanDictionaryIterType() noexcept;

// New reference to an iterator over the keys of a dict in insertion order, NULL with a Python error
// set. Its next step after the dict changed in size is a RuntimeError.
PyObject* zorvanDictionaryIter_new(PyObject* dict) noexcept;

}  // namespace PythonZorvanDataArray::detail
