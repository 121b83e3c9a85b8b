#include "to_python/table_image.h"

#include "to_python/time_values.h"
#include "util/message_catalogue.h"
#include "util/python_error.h"
#include "zorvandata/text.h"
#include "zorvandata/typed_array.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayImpl;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Item;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::toUtf8;

namespace {

constexpr char kClass[] = "table";

// Long texts, columns of characters and empty ones are arrays of their own.
std::optional<std::string> textOf(const Item& item) {
  switch (item.form()) {
    case Item::Form::kText:
    case Item::Form::kString:
      return std::string(item.utf8());
    case Item::Form::kArray: {
      const ArrayImpl& array = item.array();
      if (array.type() != ArrayType::CHAR) return std::nullopt;
      const auto* units = reinterpret_cast<const char16_t*>(array.buffer().data());
      return toUtf8({units, array.elements()});
    }
    default:
      return std::nullopt;
  }
}

}  // namespace

const std::string& valueObjectClass(const Array& array) {
  static const std::string none;
  return array.getType() == ArrayType::VALUE_OBJECT ? array.impl().layout()->className : none;
}

std::optional<Array> propertyOf(const Array& object, const char* name,
                                std::initializer_list<ArrayType> types) {
  const char* className = valueObjectClass(object).c_str();
  if (!isOneObject(object, className)) return std::nullopt;
  std::optional<size_t> position;
  if (types.size() > 0) {
    position = typedProperty({object.impl()}, className, name, types);
  } else if (!(position = findProperty({object.impl()}, name))) {
    setTableError(formatMessage(PropertyNotFoundInObject, name, className));
  }
  if (!position) return std::nullopt;
  return object.impl().items().get(*position);
}

void setTableError(const std::string& text) { setPythonErrorStr(PyExc_ValueError, text); }

std::optional<std::vector<std::string>> textsOf(const Array& texts, const char* owner,
                                                const char* what) {
  const ItemList& items = texts.impl().items();
  std::vector<std::string> result;
  result.reserve(items.size());
  for (size_t i = 0; i < items.size(); ++i) {
    std::optional<std::string> text = textOf(items[i]);
    if (!text) {
      setTableError(std::string("element ") + std::to_string(i) + " of '" + what + "' of ZORVAN " +
                    owner + " is no text");
      return std::nullopt;
    }
    result.push_back(std::move(*text));
  }
  return result;
}

std::optional<TableImage> readTable(const Array& table) {
  const auto data = propertyOf(table, "data", {ArrayType::CELL});
  if (!data) return std::nullopt;
  const auto varNames = propertyOf(table, "varnames", kTextTypes);
  if (!varNames) return std::nullopt;
  const auto rowNames = propertyOf(table, "rownames", kTextTypes);
  if (!rowNames) return std::nullopt;

  auto names = textsOf(*varNames, kClass, "varnames");
  if (!names) return std::nullopt;
  auto rows = textsOf(*rowNames, kClass, "rownames");
  if (!rows) return std::nullopt;
  const size_t count = data->getNumberOfElements();
  if (names->size() != count) {
    setTableError("ZORVAN table has " + std::to_string(count) + " variables and " +
                  std::to_string(names->size()) + " variable names");
    return std::nullopt;
  }
  TableImage image{{}, std::move(*rows)};
  for (size_t i = 0; i < count; ++i) {
    image.variables.push_back({std::move((*names)[i]), data->impl().items().get(i)});
  }
  return image;
}

}  // namespace PythonZorvanDataArray::detail
