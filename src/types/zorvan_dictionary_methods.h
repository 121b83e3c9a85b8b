// What a zorvan.dictionary does: the slots and methods of its type, most of them those of the dict
// inside.
//
// Each has the signature and the return values of its slot. On an uninitialized instance all of
// them are an IndexError. Python code may run in all of them; nothing here throws.
#pragma once

#include "util/python_api.h"

namespace PythonZorvanDataArray::detail {

// Adds what the constructor's arguments hold to `dict`; -1 with a Python error set, with the items
// before the faulty one added.
int fillZorvanDictionary(PyObject* dict, PyObject* args, PyObject* kwds) noexcept;

PyObject* zorvanDictionary_repr(PyObject* self) noexcept;
PyObject* zorvanDictionary_compare(PyObject* self, PyObject* other, int operation) noexcept;
PyObject* zorvanDictionary_iter(PyObject* self) noexcept;
Py_ssize_t zorvanDictionary_length(PyObject* self) noexcept;
PyObject* zorvanDictionary_getItem(PyObject* self, PyObject* key) noexcept;
// Deletes the item when `value` is NULL.
int zorvanDictionary_setItem(PyObject* self, PyObject* key, PyObject* value) noexcept;
int zorvanDictionary_contains(PyObject* self, PyObject* key) noexcept;
// Either operand may be the zorvan.dictionary, both must be mappings.
PyObject* zorvanDictionary_or(PyObject* left, PyObject* right) noexcept;
PyObject* zorvanDictionary_inPlaceOr(PyObject* self, PyObject* other) noexcept;

// The table of the methods with a name.
PyMethodDef* zorvanDictionaryMethods() noexcept;

}  // namespace PythonZorvanDataArray::detail
