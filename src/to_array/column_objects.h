// Columns of arbitrary objects, taken out once and walked: the items decide what they become.
//
// The first item gives the element type; it is never a gap. NA, NaT and None after it are gaps, a
// floating NaN is none.
//   items of several types      a cell each
//   texts                       strings, gaps empty texts
//   numbers or bools            an array of their type; gaps NaN, which makes integers doubles
//   dates, durations            one value object, dates only where all have the same zone
//   anything else               a cell each
#pragma once

#include <optional>

#include "util/py_object_guard.h"
#include "zorvandata/array.h"

namespace PythonZorvanDataArray::detail {

// The items of a series as a list that nobody else has; empty with a Python error set.
PythonUtil::PyObjectWithGuard listOfItems(PyObject* series);

// Absent with a Python error set: of the first item its converter's own, of a later one that cannot
// be converted, and of gaps elsewhere, TypeError with the item's type. Integers beyond 64 bits are
// an OverflowError anywhere.
std::optional<foundation::zorvandata::Array> convertObjectColumn(PyObject* series);

}  // namespace PythonZorvanDataArray::detail
