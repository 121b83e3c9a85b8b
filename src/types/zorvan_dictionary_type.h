// The Python type zorvan.dictionary: a mutable mapping around one dict.
//
// An instance gets its dict when it is constructed and keeps it for good; one that was allocated
// and not constructed is uninitialized. Everything runs with the interpreter lock held; nothing
// here throws.
#pragma once

#include "util/python_api.h"

namespace PythonZorvanDataArray::detail {

// NULL until start-up made it; then it lives as long as the process.
extern PyTypeObject* zorvanDictionaryType;

// New reference to the type, registered as a collections.abc.MutableMapping; NULL with a Python
// error set.
PyObject* makeZorvanDictionaryType() noexcept;

// Whether the object is an instance of the type, whatever its type's name says.
bool isZorvanDictionary(PyObject* object) noexcept;

// New reference to an instance around this very dict, to which it takes a reference of its own;
// NULL with a Python error set. The dict must be a plain one, of no subclass.
PyObject* zorvanDictionary_new_with_contents(PyObject* dict) noexcept;

// The dict of an instance, NULL without a Python error when it is uninitialized. Borrowed: take a
// reference wherever Python code can run while the dict is in use.
PyObject* zorvanDictionary_contents(PyObject* object) noexcept;

}  // namespace PythonZorvanDataArray::detail
