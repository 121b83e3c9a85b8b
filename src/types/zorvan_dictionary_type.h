// The Python types zorvan.dictionary and its iterator, zorvan.dictionary_iter.
#pragma once

#include "util/python_api.h"

namespace PythonZorvanDataArray::detail {

// NULL until start-up made them; then they live as long as the process.
extern PyTypeObject* zorvanDictionaryType;
extern PyTypeObject* zorvanDictionaryIter_Type;

// New references to the types, NULL with a Python error set.
PyObject* makeZorvanDictionaryType();
PyObject* makeZorvanDictionaryIterType();

}  // namespace PythonZorvanDataArray::detail
