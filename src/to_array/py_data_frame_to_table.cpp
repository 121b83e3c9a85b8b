#include "to_array/py_data_frame_to_table.h"

#include <algorithm>
#include <boost/numeric/conversion/cast.hpp>
#include <map>
#include <string>
#include <vector>

#include "to_array/column_converter.h"
#include "to_array/pandas_objects.h"
#include "to_array/table_image.h"
#include "to_array/text_converters.h"
#include "util/message_catalogue.h"
#include "util/nesting_guard.h"
#include "util/python_error.h"
#include "zorvandata/text.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::toUtf16;
using foundation::zorvandata::toUtf8;
using foundation::zorvandata::standalone::ClientArrayFactory;
using PythonUtil::NestingGuard;
using PythonUtil::PyObjectWithGuard;

namespace {

// A frame whose index counts the rows, and the columns that go over.
struct Frame {
  PyObjectWithGuard object;
  PyObjectWithGuard names;  // a list
  size_t count = 0;         // how many of the names are used: none of an empty frame
};

struct ColumnName {
  PyObjectWithGuard text;  // str(name)
  std::string utf8;
};

// `text` is the name as far as it could be had, or NULL.
void setUnconvertibleName(PyObject* text) {
  PyErr_Clear();
  auto bytes = PyObjectWithGuard::owned(
      text ? PyUnicode_AsEncodedString(text, "utf-8", "surrogatepass") : nullptr);
  PyErr_Clear();
  if (!bytes) bytes = PyObjectWithGuard::owned(PyBytes_FromString("?"));
  if (!bytes) return;
  const Py_ssize_t size = PyBytes_Size(bytes.get());
  const std::string message = formatMessage(UnableToConvertDataFrameColumnName);
  const auto error = PyObjectWithGuard::owned(PyUnicodeDecodeError_Create(
      "utf-8", PyBytes_AsString(bytes.get()), size, 0, size, message.c_str()));
  if (error) PyErr_SetObject(PyExc_UnicodeDecodeError, error.get());
}

// Absent with UnicodeDecodeError set.
std::optional<ColumnName> readName(PyObject* name) {
  auto text = PyObjectWithGuard::owned(PyObject_Str(name));
  const std::optional<std::u16string> units = convertPyStrToUstring(text.get());
  if (!units) {
    setUnconvertibleName(text.get());
    return std::nullopt;
  }
  return ColumnName{std::move(text), toUtf8(*units)};
}

// A char row; absent with UnicodeDecodeError set.
std::optional<Array> getColumnNameAsZdaArray(PyObject* name) {
  const std::optional<ColumnName> read = readName(name);
  if (!read) return std::nullopt;
  return ClientArrayFactory().createCharArray(toUtf16(read->utf8));
}

// One integer attribute of a range; false with no error set when it is no int.
bool readBound(const PyObjectWithGuard& range, const char* name, Py_ssize_t& value) {
  const auto bound = PyObjectWithGuard::owned(PyObject_GetAttrString(range.get(), name));
  if (!bound || !PyLong_Check(bound.get())) return false;
  value = PyLong_AsSsize_t(bound.get());
  return value != -1 || !PyErr_Occurred();
}

// Whether the index is the one that pandas gives to frames with rows; absent with a Python error
// set.
std::optional<bool> isRowIndexDefault(PyObject* frame) {
  const PandasObjects* pandas = pandasObjects();
  if (!pandas) return std::nullopt;
  const auto index = PyObjectWithGuard::owned(PyObject_GetAttrString(frame, "index"));
  if (!index) return std::nullopt;
  const int isRange = PyObject_IsInstance(index.get(), pandas->rangeIndex.get());
  if (isRange < 0) return std::nullopt;
  if (isRange == 0) return false;
  Py_ssize_t start = 0;
  Py_ssize_t stop = 0;
  Py_ssize_t step = 0;
  const bool isRead = readBound(index, "start", start) && readBound(index, "stop", stop) &&
                      readBound(index, "step", step);
  if (PyErr_Occurred()) return std::nullopt;
  return isRead && start == 0 && stop > 0 && step == 1;
}

// The names as a list; empty with a Python error set.
PyObjectWithGuard listOfNames(PyObject* frame) {
  const auto columns = PyObjectWithGuard::owned(PyObject_GetAttrString(frame, "columns"));
  if (!columns) return {};
  if (!PySequence_Check(columns.get())) {
    setPythonErrorStr(PyExc_TypeError, "'columns' of pandas.DataFrame object is not a sequence");
    return {};
  }
  return PyObjectWithGuard::owned(PySequence_List(columns.get()));
}

std::optional<std::vector<ColumnName>> readNames(const PyObjectWithGuard& list) {
  const auto count = boost::numeric_cast<size_t>(PyList_Size(list.get()));
  std::vector<ColumnName> names;
  names.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    const auto item =
        PyObjectWithGuard::newReference(PyList_GetItem(list.get(), static_cast<Py_ssize_t>(i)));
    std::optional<ColumnName> name = item ? readName(item.get()) : std::nullopt;
    if (!name) return std::nullopt;
    names.push_back(std::move(*name));
  }
  return names;
}

// Every one of several columns with the same text gets a suffix, the first one too; a new name may
// be that of another column. The names are assigned to the frame even when none has changed.
bool addSuffixToDuplicateColumns(PyObject* frame) {
  const PyObjectWithGuard list = listOfNames(frame);
  if (!list) return false;
  const std::optional<std::vector<ColumnName>> names = readNames(list);
  if (!names) return false;
  struct Tally {
    size_t count = 0;
    size_t numbered = 0;
  };
  std::map<std::string, Tally> tallies;
  for (const ColumnName& name : *names) ++tallies[name.utf8].count;
  for (size_t i = 0; i < names->size(); ++i) {
    const ColumnName& name = (*names)[i];
    Tally& tally = tallies[name.utf8];
    if (tally.count < 2) continue;
    PyObject* suffixed = PyUnicode_FromFormat("%U_%zu", name.text.get(), ++tally.numbered);
    // Takes over the reference.
    if (!suffixed || PyList_SetItem(list.get(), static_cast<Py_ssize_t>(i), suffixed) < 0) {
      return false;
    }
  }
  return PyObject_SetAttrString(frame, "columns", list.get()) == 0;
}

// The truth of the attribute; absent with a Python error set.
std::optional<bool> isEmptyFrame(PyObject* frame) {
  const auto empty = PyObjectWithGuard::owned(PyObject_GetAttrString(frame, "empty"));
  const int truth = empty ? PyObject_IsTrue(empty.get()) : -1;
  if (truth < 0) return std::nullopt;
  return truth != 0;
}

// Absent with a Python error set.
std::optional<Frame> prepareFrame(PyObject* obj) {
  const std::optional<bool> isDefault = isRowIndexDefault(obj);
  if (!isDefault) return std::nullopt;
  Frame frame;
  frame.object = *isDefault
                     ? PyObjectWithGuard::newReference(obj)
                     : PyObjectWithGuard::owned(PyObject_CallMethod(obj, "reset_index", nullptr));
  if (!frame.object || !addSuffixToDuplicateColumns(frame.object.get())) return std::nullopt;
  frame.names = listOfNames(frame.object.get());
  const std::optional<bool> empty = frame.names ? isEmptyFrame(frame.object.get()) : std::nullopt;
  if (!empty) return std::nullopt;
  if (!*empty) frame.count = boost::numeric_cast<size_t>(PyList_Size(frame.names.get()));
  return frame;
}

struct Column {
  PyObjectWithGuard series;
  ColumnType type;
};

// The column of that name; absent with a Python error set.
std::optional<Column> readColumn(PyObject* frame, PyObject* name) {
  Column column;
  column.series = PyObjectWithGuard::owned(PyObject_GetItem(frame, name));
  if (!column.series) return std::nullopt;
  if (!isPandasSeries(column.series.get())) {
    // Several columns have the name.
    setUnsupportedColumnItem(column.series.get());
    return std::nullopt;
  }
  std::optional<ColumnType> type = ColumnType::read(column.series.get());
  if (!type) return std::nullopt;
  column.type = std::move(*type);
  return column;
}

// Absent with a Python error set.
std::optional<std::vector<Column>> readColumns(const Frame& frame) {
  std::vector<Column> columns;
  columns.reserve(frame.count);
  for (size_t i = 0; i < frame.count; ++i) {
    const auto name = PyObjectWithGuard::newReference(
        PyList_GetItem(frame.names.get(), static_cast<Py_ssize_t>(i)));
    std::optional<Column> column = name ? readColumn(frame.object.get(), name.get()) : std::nullopt;
    if (!column) return std::nullopt;
    columns.push_back(std::move(*column));
  }
  return columns;
}

// The names as char rows; absent with UnicodeDecodeError set.
std::optional<std::vector<Array>> convertNames(const Frame& frame) {
  std::vector<Array> names;
  for (size_t i = 0; i < frame.count; ++i) {
    const auto item = PyObjectWithGuard::newReference(
        PyList_GetItem(frame.names.get(), static_cast<Py_ssize_t>(i)));
    std::optional<Array> name = item ? getColumnNameAsZdaArray(item.get()) : std::nullopt;
    if (!name) return std::nullopt;
    names.push_back(std::move(*name));
  }
  return names;
}

constexpr uint64_t kNoColumn = static_cast<uint64_t>(-1);

// The position of the first column of a datetime dtype, or kNoColumn.
uint64_t getDateTimeColumnIndex(const std::vector<Column>& columns) {
  const auto found = std::find_if(columns.begin(), columns.end(),
                                  [](const Column& column) { return column.type.kind == 'M'; });
  return found == columns.end() ? kNoColumn : static_cast<uint64_t>(found - columns.begin());
}

// All columns but the first of dates are variables. All names come first: a name that has no text
// is an error whatever the columns hold.
std::optional<Array> convertColumns(const Frame& frame) {
  const std::optional<std::vector<Array>> names = convertNames(frame);
  if (!names) return std::nullopt;
  const std::optional<std::vector<Column>> columns = readColumns(frame);
  if (!columns) return std::nullopt;
  const uint64_t timePosition = getDateTimeColumnIndex(*columns);
  TableVariables variables;
  RowTimes times;
  for (size_t i = 0; i < columns->size(); ++i) {
    const Column& column = (*columns)[i];
    const Py_ssize_t rows = PyObject_Size(column.series.get());
    if (rows < 0) return std::nullopt;
    const std::optional<Array> data = processColumnData(column.series.get(), column.type);
    if (!data) return std::nullopt;
    variables.rows = boost::numeric_cast<size_t>(rows);
    if (i == timePosition) {
      times = {(*names)[i], *data};
    } else {
      variables.names.append((*names)[i]);
      variables.data.append(*data);
    }
  }
  return timePosition == kNoColumn ? makeTable(std::move(variables))
                                   : makeTimetable(std::move(variables), times);
}

}  // namespace

std::optional<Array> PyDataFrameToTable::convert(PyObject* obj, const std::optional<Options>&) {
  if (!obj) return std::nullopt;
  // An item of a column may lie this deep: in the object, its image, the variables, the column.
  const NestingGuard object(PythonUtil::kMaxNesting);
  if (!object) return std::nullopt;
  const NestingGuard image(PythonUtil::kMaxNesting);
  if (!image) return std::nullopt;
  const NestingGuard variables(PythonUtil::kMaxNesting);
  if (!variables) return std::nullopt;
  const NestingGuard column(PythonUtil::kMaxNesting);
  if (!column) return std::nullopt;

  const std::optional<Frame> frame = prepareFrame(obj);
  if (!frame) return std::nullopt;
  return convertColumns(*frame);
}

}  // namespace PythonZorvanDataArray::detail
