#include "to_python/data_frame_assembly.h"

#include "to_python/imported_attribute.h"
#include "to_python/table_image.h"
#include "to_python/vectors.h"
#include "util/message_catalogue.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using PythonUtil::PyObjectGuardGetter;
using PythonUtil::PyObjectWithGuard;

namespace {

// Columns that share memory with what they are made of lie in memory one by one, and pandas warns
// of frames in more pieces than this.
constexpr Py_ssize_t kMostPieces = 100;

PyObject* makeStr(const std::string& utf8) {
  return PyUnicode_DecodeUTF8(utf8.data(), static_cast<Py_ssize_t>(utf8.size()), "strict");
}

}  // namespace

bool canMakeDataFrames() {
  return PyObjectGuardGetter::getModule("numpy", false) &&
         PyObjectGuardGetter::getModule("pandas", false);
}

void addAndTrackColName(std::vector<std::string>& names, std::map<std::string, bool>& seenOnce,
                        const std::string& name) {
  names.push_back(name);
  const auto [place, isNew] = seenOnce.emplace(name, true);
  if (!isNew) place->second = false;
}

PyObject* createDataDictWithUniqueNames(const std::map<std::string, bool>& seenOnce,
                                        const std::vector<PyObjectWithGuard>& columns,
                                        const std::vector<std::string>& names) {
  auto dict = PyObjectWithGuard::owned(PyDict_New());
  if (!dict) return nullptr;
  std::map<std::string, size_t> counters;
  for (size_t i = 0; i < columns.size(); ++i) {
    std::string name = names[i];
    if (!seenOnce.at(name)) name += "_" + std::to_string(++counters[names[i]]);
    const auto key = PyObjectWithGuard::owned(makeStr(name));
    if (!key || PyDict_SetItem(dict.get(), key.get(), columns[i].get()) != 0) return nullptr;
  }
  return dict.release();
}

PyObject* makeDataFrame(PyObject* dict) {
  static ImportedAttribute dataFrame("pandas", "DataFrame");
  if (!dataFrame.get()) return nullptr;
  const auto arguments = PyObjectWithGuard::owned(PyTuple_Pack(1, dict));
  const auto options = PyObjectWithGuard::owned(PyDict_New());
  if (!arguments || !options) return nullptr;
  PyObject* copy = PyDict_Size(dict) > kMostPieces ? Py_True : Py_False;
  if (PyDict_SetItemString(options.get(), "copy", copy) != 0) return nullptr;
  PyObject* frame = PyObject_Call(dataFrame.get(), arguments.get(), options.get());
  if (!frame) setPythonErrorStr(PyExc_TypeError, formatMessage(UnableToCreateDataFrame));
  return frame;
}

bool setDataFrameIndex(PyObject* frame, PyObject* labels, const char* what) {
  const auto columns = PyObjectGuardGetter::getAttrString(frame, "columns", true);
  if (!columns) return false;
  const Py_ssize_t columnCount = PyObject_Size(columns.get());
  const Py_ssize_t rows = PyObject_Size(frame);
  const Py_ssize_t count = PyObject_Size(labels);
  if (columnCount < 0 || rows < 0 || count < 0) return false;
  if (columnCount == 0 || rows == count) return PyObject_SetAttrString(frame, "index", labels) == 0;
  setTableError("ZORVAN table has " + std::to_string(rows) + " rows and " + std::to_string(count) +
                " " + what);
  return false;
}

bool updateDataFrameIndex(const std::vector<std::string>& rowNames, PyObject* frame) {
  const auto labels = PyObjectWithGuard::owned(
      makeList(rowNames.size(), [&rowNames](size_t i) { return makeStr(rowNames[i]); }));
  return labels && setDataFrameIndex(frame, labels.get(), "row names");
}

}  // namespace PythonZorvanDataArray::detail
