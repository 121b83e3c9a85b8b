// A pandas.DataFrame put together from its columns. All but canMakeDataFrames need pandas and throw
// PythonErrorSet.
#pragma once

#include <string>
#include <vector>

#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

// Whether numpy and pandas can be imported; leaves no error pending.
bool canMakeDataFrames();

// The columns by name, those whose name occurs several times as "name_1", "name_2", ... A later
// column replaces an earlier one of the same name. The frame may go on using the memory of the
// columns. TypeError when pandas does not make it.
PythonUtil::PyObjectWithGuard makeDataFrame(
    const std::vector<std::string>& names,
    const std::vector<PythonUtil::PyObjectWithGuard>& columns);

// Gives the rows their labels. ValueError, which calls the labels `what`, unless there are as many
// as rows; a frame without columns takes any number.
void setDataFrameIndex(PyObject* frame, PyObject* labels, const char* what);

// The same with a str for each name.
void updateDataFrameIndex(const std::vector<std::string>& rowNames, PyObject* frame);

}  // namespace PythonZorvanDataArray::detail
