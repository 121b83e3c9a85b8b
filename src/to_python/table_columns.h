// Variables of the engine's tables as columns of a data frame.
//
// Functions that return an object return a new reference, or NULL with a Python error set.
#pragma once

#include "util/python_api.h"
#include "zorvandata/array.h"

namespace PythonZorvanDataArray::detail {

// Whether a data frame can have a variable of this kind; sets the TypeError or ValueError that
// tells why not. Tables inside of tables are to be flattened first.
bool checkVariable(const foundation::zorvandata::Array& values);

// A dict {"dtype": name} for the types that numpy has too; NULL without an error for all others.
PyObject* getNumpyDType(const foundation::zorvandata::ArrayType& type);

// A one-dimensional numpy array of an array whose type getNumpyDType knows. It takes over the
// memory if nobody shares it.
PyObject* createNumpyArray(const foundation::zorvandata::Array& values);

// A list with the text of each row of a char array that is one row or one column.
PyObject* makeCharColumn(const foundation::zorvandata::Array& values);

// The elements of a string array: a list of str, None for missing ones, or a pandas array.
PyObject* makeStringColumn(const foundation::zorvandata::Array& values);

// A pandas.Series of the objects in a list as they are.
PyObject* makeObjectColumn(PyObject* list);

}  // namespace PythonZorvanDataArray::detail
