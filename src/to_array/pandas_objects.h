// What reading frames needs of pandas. It is imported on first need: whoever has a frame has it.
#pragma once

#include <optional>
#include <string>

#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

struct PandasObjects {
  PythonUtil::PyObjectWithGuard rangeIndex;  // the class
  PythonUtil::PyObjectWithGuard na, nat;     // the objects

  // NA, NaT or None. A floating NaN is a number like others.
  bool isMissing(PyObject* obj) const {
    return obj == Py_None || obj == na.get() || obj == nat.get();
  }
};

// Made on first use and never destroyed. NULL, with a Python error set, when pandas cannot be had.
const PandasObjects* pandasObjects();

// The Arrow array behind a series that Arrow keeps; empty with a Python error set.
PythonUtil::PyObjectWithGuard arrowArrayOf(PyObject* series);

// No hook of Python runs, and no error is set.
bool isPandasDataFrame(PyObject* obj);
bool isPandasSeries(PyObject* obj);

// The item that a positional indexer has there; empty with IndexError set.
PythonUtil::PyObjectWithGuard getItemByPosition(PyObject* iloc, Py_ssize_t position);

// Reports that an item of this one's type has no way over in a column.
void setUnsupportedColumnItem(PyObject* item);

// How a series stores its items.
struct ColumnType {
  std::string name;      // empty for those of numpy
  char kind = 0;         // numpy's letter for what it most resembles
  bool isNumpy = false;  // pandas' own and those of others are not
  bool isArrow = false;  // Arrow keeps the items
  bool isText = false;   // a dtype for texts alone, so not `object`

  // Absent with a Python error set.
  static std::optional<ColumnType> read(PyObject* series);
};

}  // namespace PythonZorvanDataArray::detail
