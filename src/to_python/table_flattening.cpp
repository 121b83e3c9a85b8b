#include "to_python/table_flattening.h"

#include "to_python/table_columns.h"
#include "util/message_catalogue.h"
#include "util/nesting_guard.h"
#include "util/python_error.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/typed_array.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::elementSize;
using foundation::zorvandata::isDense;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::makeArray;
using foundation::zorvandata::makeDense;

namespace {

using Variables = std::vector<TableVariable>;

// A short message may claim any number of columns without rows, or ask for a long name in each of
// many columns: these bound what comes of it.
constexpr size_t kMostEmptyColumns = 10'000;
constexpr size_t kLongestName = 2048;

bool processColumn(const TableVariable& variable, Variables& flat);

bool processColumns(const Variables& variables, Variables& flat) {
  const PythonUtil::NestingGuard level(PythonUtil::kMaxNesting);
  if (!level) return false;
  for (const TableVariable& variable : variables) {
    if (!processColumn(variable, flat)) return false;
  }
  return true;
}

void constructFlattenedColumnNames(const std::string& outerName, Variables& variables) {
  for (TableVariable& variable : variables) variable.name.insert(0, outerName + "_");
}

bool handleNestedTableColumn(const TableVariable& nested, Variables& flat) {
  std::optional<TableImage> image = readTable(nested.values);
  if (!image || nested.name.size() > kLongestName) {
    setPythonErrorStr(PyExc_TypeError, formatMessage(UnsupportedNestedTableConversion));
    return false;
  }
  constructFlattenedColumnNames(nested.name, image->variables);
  return processColumns(image->variables, flat);
}

// Elements of a matrix are stored column by column.
Array columnOf(const Array& matrix, size_t column) {
  const size_t rows = matrix.dimensions()[0];
  const Dimensions dims(rows, 1);
  if (isDense(matrix.getType())) {
    const size_t bytes = rows * elementSize(matrix.getType());
    const std::byte* first = matrix.impl().buffer().data() + column * bytes;
    return makeDense(matrix.getType(), dims, Buffer::copyOf(first, bytes));
  }
  ItemList items;
  items.reserve(rows);
  for (size_t i = 0; i < rows; ++i) items.append(matrix.impl().items(), column * rows + i);
  return makeArray(matrix.getType(), dims, std::move(items));
}

// The property that holds an element for each row of an object which is a column, or several, all
// by itself; NULL for other arrays, which hold their elements themselves.
const char* rowsProperty(const Array& values) {
  const std::string& className = valueObjectClass(values);
  if (className == "datetime") return "data";
  if (className == "duration") return "millis";
  if (className == "categorical") return "codes";
  return nullptr;
}

bool failToFlatten() {
  setPythonErrorStr(PyExc_TypeError, formatMessage(UnableToFlattenMultiDimensionalColumn));
  return false;
}

void extractAndAppendColumns(const TableVariable& variable, const char* property,
                             const Array& elements, Variables& flat) {
  for (size_t column = 0; column < elements.dimensions()[1]; ++column) {
    Array values = columnOf(elements, column);
    if (property) {
      Array object = variable.values;
      object[0][property] = values;
      values = object;
    }
    flat.push_back({variable.name + "_" + std::to_string(column + 1), std::move(values)});
  }
}

bool hasColumns(const Array& elements) {
  return isDense(elements.getType()) || elements.getType() == ArrayType::CELL ||
         elements.getType() == ArrayType::ZORVAN_STRING;
}

bool flattenMultiDimensionalColumn(const TableVariable& variable, Variables& flat) {
  const char* property = rowsProperty(variable.values);
  const std::optional<Array> elements =
      property ? propertyOf(variable.values, property) : variable.values;
  if (!elements) return false;
  const Dimensions& dims = elements->dimensions();
  const bool oneColumn = dims[1] == 1 || (dims[1] == 0 && dims[0] == 0);
  if (dims.count() == 2 && oneColumn) {
    flat.push_back(variable);
    return true;
  }
  const bool tooMuch =
      (dims[0] == 0 && dims[1] > kMostEmptyColumns) || variable.name.size() > kLongestName;
  if (dims.count() > 2 || dims[1] == 0 || tooMuch || !hasColumns(*elements)) {
    return failToFlatten();
  }
  extractAndAppendColumns(variable, property, *elements, flat);
  return true;
}

bool processColumn(const TableVariable& variable, Variables& flat) {
  if (valueObjectClass(variable.values) == "table") return handleNestedTableColumn(variable, flat);
  if (!checkVariable(variable.values)) return false;
  // A row of characters is one text.
  if (variable.values.getType() != ArrayType::CHAR) {
    return flattenMultiDimensionalColumn(variable, flat);
  }
  flat.push_back(variable);
  return true;
}

}  // namespace

std::optional<Variables> flattenNestedTable(const Variables& variables) {
  Variables flat;
  if (!processColumns(variables, flat)) return std::nullopt;
  return flat;
}

}  // namespace PythonZorvanDataArray::detail
