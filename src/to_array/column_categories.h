// Categorical columns become scalar value objects of class "categorical" with the properties
//   categoryNames  K-by-1 cell of char rows: the texts that occur, in no particular order
//   codes          UINT8, a row each: the position of its text, counted from 1 and cut to 8 bits
//
// Categories go by `str`. A gap has the empty text, which is then a category as any other.
#pragma once

#include "to_array/frame_columns.h"

namespace PythonZorvanDataArray::detail {

// Throws PythonErrorSet; what `str` of a category raises passes through.
foundation::zorvandata::Array handleCategoricalColumn(FrameColumns& columns, PyObject* series);

}  // namespace PythonZorvanDataArray::detail
