#include "types/type_compare.h"

#include "util/message_catalogue.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

PyObject* type_compare(PyObject* self, PyObject* other, int operation, TypeCheck check,
                       EqualityTest equal, const char* typeName) {
  const auto refuse = [typeName](const auto& message) -> PyObject* {
    setPythonErrorStr(PyExc_TypeError, formatMessage(message, typeName));
    return nullptr;
  };
  if (!check(other)) return refuse(CompareObjectOnly);
  switch (operation) {
    case Py_EQ:
      return PyBool_FromLong(equal(self, other));
    case Py_NE:
      return PyBool_FromLong(!equal(self, other));
    case Py_LT:
      return refuse(ObjectCantBeLessThan);
    case Py_LE:
      return refuse(ObjectCantBeLessEqual);
    case Py_GT:
      return refuse(ObjectCantBeGreaterThan);
    case Py_GE:
      return refuse(ObjectCantBeGreaterEqual);
    default:
      return nullptr;
  }
}

}  // namespace PythonZorvanDataArray::detail
