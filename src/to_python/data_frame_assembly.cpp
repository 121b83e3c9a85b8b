#include "to_python/data_frame_assembly.h"

#include <map>

#include "to_python/imported_attribute.h"
#include "to_python/table_image.h"
#include "to_python/vectors.h"
#include "util/message_catalogue.h"
#include "util/reference.h"

namespace PythonZorvanDataArray::detail {

using PythonUtil::check;
using PythonUtil::checked;
using PythonUtil::PyObjectGuardGetter;
using PythonUtil::PyObjectWithGuard;
using PythonUtil::PythonErrorSet;

namespace {

// Columns that share memory with what they are made of lie in memory one by one, and pandas warns
// of frames in more pieces than this.
constexpr Py_ssize_t kMostPieces = 100;

PyObject* makeStr(const std::string& utf8) {
  return PyUnicode_DecodeUTF8(utf8.data(), static_cast<Py_ssize_t>(utf8.size()), "strict");
}

PyObjectWithGuard makeDict(const std::vector<std::string>& names,
                           const std::vector<PyObjectWithGuard>& columns) {
  struct Tally {
    size_t count = 0;
    size_t numbered = 0;
  };
  std::map<std::string, Tally> tallies;
  for (const std::string& name : names) ++tallies[name].count;
  auto dict = checked(PyDict_New());
  for (size_t i = 0; i < columns.size(); ++i) {
    Tally& tally = tallies[names[i]];
    const std::string suffix = tally.count > 1 ? "_" + std::to_string(++tally.numbered) : "";
    const auto key = checked(makeStr(names[i] + suffix));
    check(PyDict_SetItem(dict.get(), key.get(), columns[i].get()));
  }
  return dict;
}

}  // namespace

bool canMakeDataFrames() {
  return PyObjectGuardGetter::getModule("numpy", false) &&
         PyObjectGuardGetter::getModule("pandas", false);
}

PyObjectWithGuard makeDataFrame(const std::vector<std::string>& names,
                                const std::vector<PyObjectWithGuard>& columns) {
  static ImportedAttribute attribute("pandas", "DataFrame");
  const auto dict = makeDict(names, columns);
  const auto dataFrame = checked(Py_XNewRef(attribute.get()));
  const auto arguments = checked(PyTuple_Pack(1, dict.get()));
  PyObject* copy = PyDict_Size(dict.get()) > kMostPieces ? Py_True : Py_False;
  const auto options = checked(Py_BuildValue("{sO}", "copy", copy));
  auto frame =
      PyObjectWithGuard::owned(PyObject_Call(dataFrame.get(), arguments.get(), options.get()));
  if (!frame) PythonUtil::raise(PyExc_TypeError, formatMessage(UnableToCreateDataFrame));
  return frame;
}

void setDataFrameIndex(PyObject* frame, PyObject* labels, const char* what) {
  const auto columns = PyObjectGuardGetter::getAttrString(frame, "columns", true);
  if (!columns) throw PythonErrorSet();
  const Py_ssize_t columnCount = PyObject_Size(columns.get());
  const Py_ssize_t rows = PyObject_Size(frame);
  const Py_ssize_t count = PyObject_Size(labels);
  if (columnCount < 0 || rows < 0 || count < 0) throw PythonErrorSet();
  if (columnCount != 0 && rows != count) {
    throwTableError("ZORVAN table has " + std::to_string(rows) + " rows and " +
                    std::to_string(count) + " " + what);
  }
  check(PyObject_SetAttrString(frame, "index", labels));
}

void updateDataFrameIndex(const std::vector<std::string>& rowNames, PyObject* frame) {
  const auto labels =
      checked(makeList(rowNames.size(), [&rowNames](size_t i) { return makeStr(rowNames[i]); }));
  setDataFrameIndex(frame, labels.get(), "row names");
}

}  // namespace PythonZorvanDataArray::detail
