// A pandas.DataFrame put together from its columns.
//
// All need pandas, which canMakeDataFrames tells of beforehand. Those that return an object return
// a new reference, or NULL with a Python error set; so do those that return false.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

// Whether numpy and pandas can be imported; leaves no error pending.
bool canMakeDataFrames();

// Adds a name to the list; in the map true stands for a name that was added only once so far.
void addAndTrackColName(std::vector<std::string>& names, std::map<std::string, bool>& seenOnce,
                        const std::string& name);

// The columns by name, those whose name occurs several times as "name_1", "name_2", ... A later
// column replaces an earlier one of the same name.
PyObject* createDataDictWithUniqueNames(const std::map<std::string, bool>& seenOnce,
                                        const std::vector<PythonUtil::PyObjectWithGuard>& columns,
                                        const std::vector<std::string>& names);

// The frame may go on using the memory of the columns. TypeError when pandas does not make it.
PyObject* makeDataFrame(PyObject* dict);

// Gives the rows their labels. ValueError, which calls the labels `what`, unless there are as many
// as rows; a frame without columns takes any number.
bool setDataFrameIndex(PyObject* frame, PyObject* labels, const char* what);

// The same with a str for each name.
bool updateDataFrameIndex(const std::vector<std::string>& rowNames, PyObject* frame);

}  // namespace PythonZorvanDataArray::detail
