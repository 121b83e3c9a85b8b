// The comparison that zorvan.object and zorvan.dictionary share.
#pragma once

#include "util/python_api.h"

namespace PythonZorvanDataArray::detail {

using TypeCheck = bool (*)(PyObject*);
using EqualityTest = bool (*)(PyObject*, PyObject*);

// The body of a tp_richcompare slot. == and != answer by `equal`; objects that do not pass `check`
// and all other operators are a TypeError that shows `typeName`. Returns a new reference, NULL on
// failure; throws what `equal` throws.
PyObject* type_compare(PyObject* self, PyObject* other, int operation, TypeCheck check,
                       EqualityTest equal, const char* typeName);

}  // namespace PythonZorvanDataArray::detail
