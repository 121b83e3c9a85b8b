// The engine's table as a pandas.DataFrame.
#include "to_python/data_frame_assembly.h"
#include "to_python/decoder.h"
#include "to_python/table_columns.h"
#include "to_python/table_flattening.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using PythonUtil::PyObjectWithGuard;

namespace {

// A column must have as many rows as the first one, of which `rows` tells from then on.
void checkHeight(const PyObjectWithGuard& column, const std::string& name,
                 std::optional<Py_ssize_t>& rows) {
  const Py_ssize_t height = PyObject_Size(column.get());
  if (height < 0) throw PythonUtil::PythonErrorSet();
  if (!rows) rows = height;
  if (height == *rows) return;
  throwTableError("variable '" + name + "' of ZORVAN table has " + std::to_string(height) +
                  " rows, those before it have " + std::to_string(*rows));
}

}  // namespace

PyObjectWithGuard makeTable(Decoder& decoder, const Array& table) {
  if (!canMakeDataFrames()) return makeZorvanObject(table);
  const TableImage image = readTable(table);
  std::vector<std::string> names;
  std::vector<PyObjectWithGuard> columns;
  std::optional<Py_ssize_t> rows;
  for (const TableVariable& variable : flattenNestedTable(image.variables)) {
    names.push_back(variable.name);
    columns.push_back(makeColumn(decoder, variable.values));
    checkHeight(columns.back(), variable.name, rows);
  }
  auto frame = makeDataFrame(names, columns);
  if (!image.rowNames.empty()) updateDataFrameIndex(image.rowNames, frame.get());
  return frame;
}

}  // namespace PythonZorvanDataArray::detail
