// One column of a frame becomes an array of as many rows in one column, decided by its dtype and
// filled from memory:
//   numbers, bools       numeric or logical; nullable integers with a gap double, gaps NaN
//   texts                string, gaps empty texts (column_texts.h)
//   dates, durations     a scalar value object whose data has the rows
//   categories           a scalar value object (column_categories.h)
//   anything else        by the items (column_objects.h)
#pragma once

#include "to_array/frame_columns.h"
#include "to_array/pandas_objects.h"

namespace PythonZorvanDataArray::detail {

// How items of columns are converted: texts as strings.
ConversionOptions getOptionsWithinTable();

// Throws PythonErrorSet: TypeError with the item's type for a gap that has no way over, which is
// one among dates or bools; what pandas or numpy raise passes through. `columns` are those before.
foundation::zorvandata::Array processColumnData(FrameColumns& columns, PyObject* series,
                                                const ColumnType& type);

// A series of a numpy dtype of numbers or bools, sharing its memory.
foundation::zorvandata::Array convertNumpyNumbers(PyObject* series);

}  // namespace PythonZorvanDataArray::detail
