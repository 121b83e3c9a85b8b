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

#include "to_array/frame_columns.h"
#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

// The items of a series as a list that nobody else has; throws PythonErrorSet.
PythonUtil::PyObjectWithGuard listOfItems(PyObject* series);

// Throws PythonErrorSet: of the first item its converter's own error, of a later one that cannot be
// converted, and of gaps elsewhere, TypeError with the item's type. Integers beyond 64 bits are an
// OverflowError anywhere.
foundation::zorvandata::Array convertObjectColumn(FrameColumns& columns, PyObject* series);

}  // namespace PythonZorvanDataArray::detail
