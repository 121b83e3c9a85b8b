// Sequences of records, all alike and of plain values, as one array of a column a field.
#pragma once

#include <optional>

#include "util/python_api.h"
#include "zorvandata/item_list.h"

namespace PythonZorvanDataArray::detail {

// The elements of a list or tuple if all are dicts with the same keys in the same order, or lists
// and tuples of the same length, and hold only plain values (plain_columns.h); and if there are
// enough of them to be worth it. Absent otherwise; with a Python error set when a key or a value
// fails.
std::optional<foundation::zorvandata::ItemList> recordColumn(PyObject* listOrTuple);

}  // namespace PythonZorvanDataArray::detail
