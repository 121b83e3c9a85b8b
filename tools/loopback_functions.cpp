#include "loopback_functions.h"

#include <algorithm>
#include <cctype>

#include "loopback_tables.h"
#include "zorvandata/array_factory.h"
#include "zorvandata/typed_array.h"

namespace tools {
namespace {

using namespace foundation::zorvandata;  // NOLINT(google-build-using-namespace)
using foundation::protobuf::common::EngineError;
using foundation::protobuf::common::Envelope;

// Takes the arguments, a cell array, and returns all outputs that the function can give.
using Function = Envelope (*)(const Array& arguments);

const ArrayFactory factory;

Envelope outputs(const std::vector<Array>& arrays) {
  return {factory.createCellArray({1, arrays.size()}, arrays), {}, {}};
}

Envelope failure(EngineError error) {
  Envelope answer = outputs({});
  answer.error = std::move(error);
  return answer;
}

// An output made from each argument.
template <class Make>
Envelope forEach(const Array& arguments, Make make) {
  std::vector<Array> results;
  for (const Array& argument : TypedArray<Array>(arguments)) results.push_back(make(argument));
  return outputs(results);
}

Envelope echo(const Array& arguments) { return {arguments, {}, {}}; }

Envelope size(const Array& arguments) {
  return forEach(arguments, [](const Array& argument) {
    const std::vector<size_t> dims = argument.getDimensions();
    const std::vector<double> row(dims.begin(), dims.end());
    return factory.createArrayWithData(ArrayType::DOUBLE, {1, row.size()}, row.data(),
                                       row.size() * sizeof(double));
  });
}

// The class of an object; the element type in lower case of everything else, complex and sparse
// arrays going by the type of their parts.
std::string classNameOf(const Array& array) {
  const Layout* layout = array.impl().layout().get();
  if (layout && !layout->className.empty()) return layout->className;
  std::string name = nameOf(array.getType());
  for (const std::string prefix : {"SPARSE_", "COMPLEX_", "ZORVAN_"}) {
    if (name.rfind(prefix, 0) == 0) name.erase(0, prefix.size());
  }
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return name;
}

Envelope classOf(const Array& arguments) {
  return forEach(arguments, [](const Array& argument) {
    return factory.createCharArray(toUtf16(classNameOf(argument)));
  });
}

// The text that the first argument is, if it is one.
std::optional<std::u16string> firstText(const Array& arguments) {
  if (arguments.isEmpty()) return std::nullopt;
  const Array first = TypedArray<Array>(arguments)[0];
  if (first.getType() == ArrayType::CHAR) return CharArray(first).toUTF16();
  if (first.getType() != ArrayType::ZORVAN_STRING || first.isEmpty()) return std::nullopt;
  return TypedArray<std::optional<std::u16string>>(first)[0];
}

Envelope fail(const Array& arguments) {
  const std::u16string message = firstText(arguments).value_or(u"The function failed as asked.");
  return failure({toUtf8(message),
                  "loopback:fail",
                  {{"loopback/inner.m", "inner", 7}, {"loopback/outer.m", "outer", 42}}});
}

Envelope sparse(const Array&) {
  const double values[] = {1.5, -2, 3};
  return outputs({factory.createSparseArray(
      ArrayType::SPARSE_DOUBLE, 3, 3, {0, 2, 1}, {0, 2, 2, 3},
      factory.createArrayWithData(ArrayType::DOUBLE, {1, 3}, values, sizeof(values)))});
}

Envelope enumeration(const Array&) {
  return outputs({factory.createEnumerationArray({1, 2}, {"loopback.Color"}, {"Red", "Green"})});
}

Envelope handle(const Array&) {
  return outputs({factory.createHandleArray({1, 2}, {"loopback.Device"}, {1, 2})});
}

Envelope object(const Array&) {
  const ClassInfo point = factory.createClassInfo({"loopback.Point"}, {{"x"}, {"label"}});
  Array points = factory.createValueObjectArray({2, 3}, point, true);
  for (size_t i = 0; i < points.getNumberOfElements(); ++i) {
    points[i]["x"] = factory.createScalar(static_cast<double>(i));
    points[i]["label"] = factory.createCharArray("point " + std::to_string(i));
  }
  return outputs({points});
}

Envelope missing(const Array&) {
  Array texts = factory.createArray(ArrayType::ZORVAN_STRING, {1, 3});
  texts[0] = std::optional<std::u16string>(u"first");
  texts[2] = std::optional<std::u16string>(u"last");
  return outputs(
      {factory.createValueObjectScalar(factory.createClassInfo({"missing"})), std::move(texts)});
}

// A function that takes no notice of its arguments.
template <Array (*make)()>
Envelope made(const Array&) {
  return outputs({make()});
}

struct Row {
  std::string_view name;
  Function function;
  std::string_view description;
};

constexpr Row kFunctions[] = {
    {"echo", echo, "the arguments"},
    {"size", size, "each argument's dimensions, a row of doubles"},
    {"class", classOf,
     "each argument's class: double, single, int8, ..., logical, char, string, cell, struct (also\n"
     "               when complex or sparse); of objects, handles and enumerations their own "
     "class"},
    {"fail", fail, "an error; its message is the first argument if that is text"},
    {"sparse", sparse, "a 3-by-3 sparse double matrix"},
    {"enumeration", enumeration, "a 1-by-2 array of enumeration members"},
    {"handle", handle, "a 1-by-2 array of handle references"},
    {"object", object, "a 2-by-3 array of value objects with two properties"},
    {"missing", missing, "the missing value, and a 1-by-3 string array whose middle is missing"},
    {"table", made<makePlainTable>, "a table with a variable of each plain kind"},
    {"timetable", made<makeZonedTimetable>, "a timetable whose row times have a time zone"},
    {"nested-table", made<makeNestedTable>, "a table that holds tables and a matrix"},
    {"categorical", made<makeCategoricalTable>, "a table with a categorical variable"},
    {"row-names", made<makeTableWithRowNames>, "a table whose rows have names"},
};

// The first `count` elements of a cell array.
Array firstOf(const Array& cell, size_t count) {
  if (cell.getNumberOfElements() <= count) return cell;
  std::vector<Array> items;
  for (size_t i = 0; i < count; ++i) items.push_back(cell.impl().items().get(i));
  return makeArray(ArrayType::CELL, Dimensions::row(count), Items(std::move(items)));
}

}  // namespace

Envelope callFunction(std::string_view name, const Envelope& parameters) {
  const auto* row = std::find_if(std::begin(kFunctions), std::end(kFunctions),
                                 [name](const Row& candidate) { return candidate.name == name; });
  if (row == std::end(kFunctions)) {
    return failure(
        {"Unknown function '" + std::string(name) + "'.", "loopback:unknownFunction", {}});
  }
  Envelope answer = row->function(parameters.arrays);
  const int32_t wanted = std::max(parameters.nargout.value_or(1), 0);
  answer.arrays = firstOf(answer.arrays, static_cast<size_t>(wanted));
  return answer;
}

std::string describeFunctions() {
  std::string text = "Functions:\n";
  for (const Row& row : kFunctions) {
    text.append("  ").append(row.name).append(13 - row.name.size(), ' ').append(row.description);
    text.push_back('\n');
  }
  return text;
}

}  // namespace tools
