// Names of Python types, by which every conversion is chosen.
//
// They are read from the type object itself: nothing that a metaclass or an instance says about it
// counts. No function sets a Python error, and the only exception is std::bad_alloc. A name is what
// a type claims: whoever goes on to touch the insides of an object makes sure of its real type.
#pragma once

#include <string>

#include "util/python_api.h"

namespace PythonZorvanDataArray::detail {

// The full name: module and name joined by a dot ("datetime.datetime", "zorvan.double",
// "collections.ChainMap"), the bare name for builtins ("float") and for a type without a module.
// Empty for a type whose module is no text, no encodable text or empty.
std::string typeNameOf(PyTypeObject* type);

// The name that errors show: the full one for types of extension modules ("numpy.ndarray"), only
// the class name for classes defined in Python ("ChainMap"). Empty for NULL.
std::string getUnqualifiedName(PyObject* object);

// Always empty: a module never counts when types are told apart by `checkByName`.
std::string getModName(PyObject* object);

// The same text as `getUnqualifiedName`.
std::string getQualifiedName(PyObject* object);

// Whether the qualified name is exactly `name`; instances of subclasses do not pass.
bool checkByName(PyObject* object, const char* name);

bool PyZorvanObject_Check(PyObject* object);
bool PyZorvanDictionary_Check(PyObject* object);

}  // namespace PythonZorvanDataArray::detail
