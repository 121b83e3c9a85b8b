// What reading frames needs of pandas, which is imported on first need: whoever has a frame has it.
//
// All but the tests throw PythonErrorSet with a Python error pending.
#pragma once

#include <string>

#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

struct PandasObjects {
  PythonUtil::PyObjectWithGuard dataFrame, rangeIndex;  // classes
  PythonUtil::PyObjectWithGuard na, nat;                // the objects

  // NA, NaT or None. A floating NaN is a number like others.
  bool isMissing(PyObject* obj) const {
    return obj == Py_None || obj == na.get() || obj == nat.get();
  }
};

// Made on first use and never destroyed.
const PandasObjects& pandasObjects();

PythonUtil::PyObjectWithGuard attributeOf(PyObject* obj, const char* name);
// What a method without arguments gives.
PythonUtil::PyObjectWithGuard resultOf(PyObject* obj, const char* method);
PythonUtil::PyObjectWithGuard listItem(const PythonUtil::PyObjectWithGuard& list, size_t position);
// The Arrow array behind a series that Arrow keeps.
PythonUtil::PyObjectWithGuard arrowArrayOf(PyObject* series);

// Tests: no hook of Python runs, and no error is set.
bool isPandasDataFrame(PyObject* obj);
bool isPandasSeries(PyObject* obj);
// Of a type of the interpreter's own, the values of which convert and have a `str` without running
// any Python code.
bool isPlain(PyObject* obj);
// Whether all items of a sequence are; throws.
bool arePlain(PyObject* sequence);

// Reports that an item of this one's type has no way over in a column.
[[noreturn]] void refuseColumnItem(PyObject* item);

// How a series stores its items.
struct ColumnType {
  std::string name;      // empty for those of numpy
  char kind = 0;         // numpy's letter for what it most resembles
  bool isNumpy = false;  // pandas' own and those of others are not
  bool isArrow = false;  // Arrow keeps the items
  bool isText = false;   // a dtype for texts alone, so not `object`

  static ColumnType read(PyObject* series);
};

}  // namespace PythonZorvanDataArray::detail
