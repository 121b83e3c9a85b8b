#include "to_python/table_image.h"

#include <optional>

#include "to_python/time_values.h"
#include "util/message_catalogue.h"
#include "util/reference.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/text.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Items;
using foundation::zorvandata::kindOf;
using foundation::zorvandata::RecordReader;
using foundation::zorvandata::TapeReader;

namespace {

constexpr char kClass[] = "table";

using Text = std::optional<std::string>;

Text textOf(const std::optional<std::string_view>& text) {
  return text ? Text(std::string(*text)) : std::nullopt;
}

Text textOf(const Array& array) {
  if (array.getType() == ArrayType::CHAR) {
    const auto* units = reinterpret_cast<const char16_t*>(array.impl().buffer().data());
    return foundation::zorvandata::toUtf8({units, array.getNumberOfElements()});
  }
  const bool isString =
      array.getType() == ArrayType::ZORVAN_STRING && array.dimensions().isScalar();
  return isString ? textOf(array.impl().texts()[0]) : std::nullopt;
}

// Of the next item, mostly without an array for it.
Text textOf(TapeReader& reader) {
  if (reader.peek() != kindOf(ArrayType::CHAR)) return textOf(reader.array());
  reader.kind();
  return textOf(reader.text());
}

// Calls read(text) for each element.
template <class Read>
void forEachText(const Array& texts, const Read& read) {
  if (texts.getType() == ArrayType::ZORVAN_STRING) {
    return texts.impl().texts().forEach([&](const auto& text) { read(textOf(text)); });
  }
  const Items& items = texts.impl().items();
  if (items.onTape().size() == 1) {
    return items.onTape().front().forEach([&](TapeReader& reader) { read(textOf(reader)); });
  }
  for (size_t i = 0; i < items.size(); ++i) read(textOf(items.get(i)));
}

}  // namespace

std::string_view valueObjectClass(const Array& array) {
  return array.getType() == ArrayType::VALUE_OBJECT
             ? std::string_view(array.impl().layout()->className)
             : std::string_view();
}

Array propertyOf(const Array& object, const char* name, std::initializer_list<ArrayType> types) {
  const char* className = object.impl().layout()->className.c_str();
  requireOneObject(object, className);
  const RecordReader record(object);
  if (types.size() > 0) return requireProperty(record, className, name, types).arrayHere();
  const auto value = record.find(name);
  if (!value) throwTableError(formatMessage(PropertyNotFoundInObject, name, className));
  return value->arrayHere();
}

void throwTableError(const std::string& text) { PythonUtil::raise(PyExc_ValueError, text); }

std::vector<std::string> textsOf(const Array& texts, const char* owner, const char* what) {
  std::vector<std::string> result;
  result.reserve(texts.getNumberOfElements());
  forEachText(texts, [&](Text text) {
    if (!text) {
      throwTableError("element " + std::to_string(result.size()) + " of '" + what + "' of ZORVAN " +
                      owner + " is no text");
    }
    result.push_back(std::move(*text));
  });
  return result;
}

TableImage readTable(const Array& table) {
  const Array data = propertyOf(table, "data", {ArrayType::CELL});
  const Array varNames = propertyOf(table, "varnames", kTextTypes);
  const Array rowNames = propertyOf(table, "rownames", kTextTypes);

  std::vector<std::string> names = textsOf(varNames, kClass, "varnames");
  TableImage image{{}, textsOf(rowNames, kClass, "rownames")};
  const size_t count = data.getNumberOfElements();
  if (names.size() != count) {
    throwTableError("ZORVAN table has " + std::to_string(count) + " variables and " +
                    std::to_string(names.size()) + " variable names");
  }
  for (size_t i = 0; i < count; ++i) {
    image.variables.push_back({std::move(names[i]), data.impl().items().get(i)});
  }
  return image;
}

}  // namespace PythonZorvanDataArray::detail
