#include "to_python/table_flattening.h"

#include "to_python/table_columns.h"
#include "util/message_catalogue.h"
#include "util/reference.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/typed_array.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::elementSize;
using foundation::zorvandata::isDense;
using foundation::zorvandata::Items;
using foundation::zorvandata::makeArray;
using foundation::zorvandata::makeDense;
using foundation::zorvandata::TapeItems;
using foundation::zorvandata::Texts;
using foundation::zorvandata::TextsBuilder;
using PythonUtil::raise;

namespace {

using Variables = std::vector<TableVariable>;

// A short message may claim any number of columns without rows, or ask for a long name in each of
// many columns: these bound what comes of it.
constexpr size_t kMostEmptyColumns = 10'000;
constexpr size_t kLongestName = 2048;

void processColumns(const Variables& variables, Variables& flat);

// Messages bound how deep tables nest.
void handleNestedTableColumn(const TableVariable& nested, Variables& flat) {
  const auto refuse = [] {
    raise(PyExc_TypeError, formatMessage(UnsupportedNestedTableConversion));
  };
  TableImage image;
  try {
    image = readTable(nested.values);
  } catch (const PythonUtil::PythonErrorSet&) {
    refuse();
  }
  if (nested.name.size() > kLongestName) refuse();
  for (TableVariable& variable : image.variables) variable.name.insert(0, nested.name + "_");
  processColumns(image.variables, flat);
}

Texts slice(const Texts& texts, size_t first, size_t count) {
  TextsBuilder part;
  for (size_t i = first; i < first + count; ++i) part.append(texts[i]);
  return part.finish();
}

Items slice(const Items& items, size_t first, size_t count) {
  if (items.onTape().size() == 1) {
    const TapeItems& all = items.onTape().front();
    return Items(TapeItems(all.tape(), all.at(first), all.isRun(), count));
  }
  Items part;
  for (size_t i = first; i < first + count; ++i) part.append(items.get(i));
  return part;
}

// Elements of a matrix are stored column by column.
Array columnOf(const Array& matrix, size_t column) {
  const ArrayType type = matrix.getType();
  const size_t rows = matrix.dimensions()[0];
  const Dimensions dims(rows, 1);
  if (isDense(type)) {
    const size_t bytes = rows * elementSize(type);
    const std::byte* first = matrix.impl().buffer().data() + column * bytes;
    return makeDense(type, dims, Buffer::copyOf(first, bytes));
  }
  return type == ArrayType::CELL
             ? makeArray(type, dims, slice(matrix.impl().items(), column * rows, rows))
             : makeArray(type, dims, slice(matrix.impl().texts(), column * rows, rows));
}

// The property that holds an element for each row of an object which is a column, or several, all
// by itself; NULL for other arrays, which hold their elements themselves.
const char* rowsProperty(const Array& values) {
  const std::string_view className = valueObjectClass(values);
  if (className == "datetime") return "data";
  if (className == "duration") return "millis";
  if (className == "categorical") return "codes";
  return nullptr;
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

void flattenMultiDimensionalColumn(const TableVariable& variable, Variables& flat) {
  const char* property = rowsProperty(variable.values);
  const Array elements = property ? propertyOf(variable.values, property) : variable.values;
  const Dimensions& dims = elements.dimensions();
  const bool oneColumn = dims[1] == 1 || (dims[1] == 0 && dims[0] == 0);
  if (dims.count() == 2 && oneColumn) return flat.push_back(variable);
  const bool tooMuch =
      (dims[0] == 0 && dims[1] > kMostEmptyColumns) || variable.name.size() > kLongestName;
  if (dims.count() > 2 || dims[1] == 0 || tooMuch || !hasColumns(elements)) {
    raise(PyExc_TypeError, formatMessage(UnableToFlattenMultiDimensionalColumn));
  }
  extractAndAppendColumns(variable, property, elements, flat);
}

void processColumns(const Variables& variables, Variables& flat) {
  for (const TableVariable& variable : variables) {
    if (valueObjectClass(variable.values) == "table") {
      handleNestedTableColumn(variable, flat);
      continue;
    }
    checkVariable(variable.values);
    // A row of characters is one text.
    if (variable.values.getType() == ArrayType::CHAR) {
      flat.push_back(variable);
    } else {
      flattenMultiDimensionalColumn(variable, flat);
    }
  }
}

}  // namespace

Variables flattenNestedTable(const Variables& variables) {
  Variables flat;
  processColumns(variables, flat);
  return flat;
}

}  // namespace PythonZorvanDataArray::detail
