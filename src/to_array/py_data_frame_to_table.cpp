#include "to_array/py_data_frame_to_table.h"

#include <algorithm>
#include <boost/numeric/conversion/cast.hpp>
#include <map>
#include <string>
#include <vector>

#include "to_array/column_converter.h"
#include "to_array/frame_columns.h"
#include "to_array/pandas_objects.h"
#include "to_array/table_image.h"
#include "to_array/text_converters.h"
#include "util/message_catalogue.h"
#include "util/reference.h"
#include "zorvandata/text.h"

namespace PythonZorvanDataArray::detail {

using PythonUtil::check;
using PythonUtil::checked;
using PythonUtil::PyObjectWithGuard;
using PythonUtil::PythonErrorSet;

namespace {

// A frame whose index counts the rows, and the names of the columns that go over.
struct Frame {
  PyObjectWithGuard object;
  std::vector<PyObjectWithGuard> names;
};

struct ColumnName {
  PyObjectWithGuard text;  // str(name)
  std::string utf8;
};

// `text` is the name as far as it could be had, or NULL.
[[noreturn]] void refuseName(PyObject* text) {
  PyErr_Clear();
  auto bytes = PyObjectWithGuard::owned(
      text ? PyUnicode_AsEncodedString(text, "utf-8", "surrogatepass") : nullptr);
  PyErr_Clear();
  if (!bytes) bytes = checked(PyBytes_FromString("?"));
  const Py_ssize_t size = PyBytes_Size(bytes.get());
  const std::string message = formatMessage(UnableToConvertDataFrameColumnName);
  const auto error = checked(PyUnicodeDecodeError_Create("utf-8", PyBytes_AsString(bytes.get()),
                                                         size, 0, size, message.c_str()));
  PyErr_SetObject(PyExc_UnicodeDecodeError, error.get());
  throw PythonErrorSet();
}

// UnicodeDecodeError for a name without a text.
ColumnName readName(Encoder& to, PyObject* name) {
  if (!isPlain(name)) to.beforeForeignCode();
  auto text = PyObjectWithGuard::owned(PyObject_Str(name));
  const std::optional<std::u16string> units = convertPyStrToUstring(text.get());
  if (!units) refuseName(text.get());
  return {std::move(text), foundation::zorvandata::toUtf8(*units)};
}

// One integer attribute of a range, if it is one.
std::optional<Py_ssize_t> boundOf(const PyObjectWithGuard& range, const char* name) {
  const auto bound = attributeOf(range.get(), name);
  if (!PyLong_Check(bound.get())) return std::nullopt;
  const Py_ssize_t value = PyLong_AsSsize_t(bound.get());
  if (value == -1 && PyErr_Occurred()) throw PythonErrorSet();
  return value;
}

// Whether the index is the one that pandas gives to frames with rows.
bool isRowIndexDefault(PyObject* frame) {
  const auto index = attributeOf(frame, "index");
  const int isRange = PyObject_IsInstance(index.get(), pandasObjects().rangeIndex.get());
  check(isRange);
  return isRange != 0 && boundOf(index, "start") == 0 && boundOf(index, "stop") > 0 &&
         boundOf(index, "step") == 1;
}

// The names as a list that nobody else has.
PyObjectWithGuard listOfNames(PyObject* frame) {
  const auto columns = attributeOf(frame, "columns");
  if (!PySequence_Check(columns.get())) {
    PythonUtil::raise(PyExc_TypeError, "'columns' of pandas.DataFrame object is not a sequence");
  }
  return checked(PySequence_List(columns.get()));
}

size_t sizeOf(PyObject* obj) {
  const Py_ssize_t size = PyObject_Size(obj);
  if (size < 0) throw PythonErrorSet();
  return boost::numeric_cast<size_t>(size);
}

// Every one of several columns with the same text gets a suffix, the first one too; a new name may
// be that of another column. The names are assigned to the frame even when none has changed.
void addSuffixToDuplicateColumns(Encoder& to, PyObject* frame) {
  struct Tally {
    size_t count = 0;
    size_t numbered = 0;
  };
  const PyObjectWithGuard list = listOfNames(frame);
  std::vector<ColumnName> names;
  std::map<std::string, Tally> tallies;
  for (size_t i = 0; i < sizeOf(list.get()); ++i) {
    names.push_back(readName(to, listItem(list, i).get()));
    ++tallies[names.back().utf8].count;
  }
  for (size_t i = 0; i < names.size(); ++i) {
    Tally& tally = tallies[names[i].utf8];
    if (tally.count < 2) continue;
    auto suffixed = checked(PyUnicode_FromFormat("%U_%zu", names[i].text.get(), ++tally.numbered));
    check(PyList_SetItem(list.get(), static_cast<Py_ssize_t>(i), suffixed.release()));
  }
  check(PyObject_SetAttrString(frame, "columns", list.get()));
}

// The frame with its index as columns, unless that counts the rows.
PyObjectWithGuard withIndexAsColumns(Encoder& to, PyObject* obj) {
  if (isRowIndexDefault(obj)) return PyObjectWithGuard::newReference(obj);
  // Names of the index are compared with those of the columns, which may have code of their own.
  const auto indexNames = attributeOf(attributeOf(obj, "index").get(), "names");
  if (!arePlain(indexNames.get()) || !arePlain(listOfNames(obj).get())) to.beforeForeignCode();
  return resultOf(obj, "reset_index");
}

Frame prepareFrame(Encoder& to, PyObject* obj) {
  Frame frame;
  frame.object = withIndexAsColumns(to, obj);
  addSuffixToDuplicateColumns(to, frame.object.get());
  const PyObjectWithGuard names = listOfNames(frame.object.get());
  const int isEmpty = PyObject_IsTrue(attributeOf(frame.object.get(), "empty").get());
  check(isEmpty);
  if (isEmpty != 0) return frame;
  for (size_t i = 0; i < sizeOf(names.get()); ++i) frame.names.push_back(listItem(names, i));
  return frame;
}

struct Column {
  PyObjectWithGuard series;
  ColumnType type;
};

Column readColumn(PyObject* frame, PyObject* name) {
  auto series = checked(PyObject_GetItem(frame, name));
  // Several columns have the name.
  if (!isPandasSeries(series.get())) refuseColumnItem(series.get());
  ColumnType type = ColumnType::read(series.get());
  return {std::move(series), std::move(type)};
}

// All names come first: a name that has no text is an error whatever the columns hold. The first
// column of a datetime dtype gives the row times.
void appendColumns(Encoder& to, FrameColumns& converted, const Frame& frame, bool isForeign) {
  TableVariables variables;
  for (const PyObjectWithGuard& name : frame.names) {
    variables.names.push_back(readName(to, name.get()).utf8);
  }
  std::vector<Column> columns;
  for (const PyObjectWithGuard& name : frame.names) {
    columns.push_back(readColumn(frame.object.get(), name.get()));
  }
  for (const Column& column : columns) {
    if (isForeign) converted.beforeForeignCode();
    variables.rows = sizeOf(column.series.get());
    converted.append(processColumnData(converted, column.series.get(), column.type));
  }
  variables.data = converted.arrays();
  const auto first = std::find_if(columns.begin(), columns.end(),
                                  [](const Column& column) { return column.type.kind == 'M'; });
  std::optional<RowTimes> times;
  if (first != columns.end()) {
    const auto name = variables.names.begin() + (first - columns.begin());
    const auto data = variables.data.begin() + (first - columns.begin());
    times = RowTimes{*name, *data};
    variables.names.erase(name);
    variables.data.erase(data);
  }
  appendTable(to.tape(), variables, times);
}

}  // namespace

void PyDataFrameToTable::append(Encoder& to, PyObject* obj, const Options&) const {
  FrameColumns columns(to);
  const Level level(columns.encoder());
  // Derived classes may do anything in place of what pandas does.
  const bool isForeign =
      reinterpret_cast<PyObject*>(Py_TYPE(obj)) != pandasObjects().dataFrame.get();
  if (isForeign) to.beforeForeignCode();
  appendColumns(to, columns, prepareFrame(to, obj), isForeign);
}

}  // namespace PythonZorvanDataArray::detail
