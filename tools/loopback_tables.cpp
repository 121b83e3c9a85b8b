#include "loopback_tables.h"

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "zorvandata/array_factory.h"
#include "zorvandata/typed_array.h"

namespace tools {
namespace {

using namespace foundation::zorvandata;  // NOLINT(google-build-using-namespace)

const ArrayFactory factory;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kDay = 86'400'000;  // in milliseconds

using Named = std::vector<std::pair<std::string, Array>>;

template <class T>
Array matrix(size_t rows, size_t columns, const std::vector<T>& values) {
  return factory.createArrayWithData(ArrayTypeOf<T>::value, {rows, columns}, values.data(),
                                     values.size() * sizeof(T));
}

template <class T>
Array column(const std::vector<T>& values) {
  return matrix(values.size(), 1, values);
}

Array logicalColumn(const std::vector<char>& values) {
  return factory.createArrayWithData(ArrayType::LOGICAL, {values.size(), 1}, values.data(),
                                     values.size());
}

Array charCell(const ArrayDimensions& dims, const std::vector<std::string>& texts) {
  std::vector<Array> elements;
  elements.reserve(texts.size());
  for (const std::string& text : texts) elements.push_back(factory.createCharArray(text));
  return factory.createCellArray(dims, elements);
}

Array object(const std::string& className, const Named& properties) {
  std::vector<ZorvanPropertyIdentifier> names;
  for (const auto& [name, value] : properties) names.emplace_back(name);
  Array result = factory.createValueObjectScalar({className}, names);
  for (const auto& [name, value] : properties) result[0][name.c_str()] = value;
  return result;
}

Array record(const Named& fields) {
  std::vector<std::string> names;
  for (const auto& [name, value] : fields) names.push_back(name);
  Array result = factory.createStructArray({1, 1}, names);
  for (const auto& [name, value] : fields) result[0][name.c_str()] = value;
  return result;
}

Array datetimes(const std::vector<std::complex<double>>& times, const char* zone) {
  return object("datetime", {{"data", column(times)},
                             {"fmt", factory.createCharArray("")},
                             {"tz", factory.createCharArray(zone)}});
}

Array durations(const std::vector<double>& milliseconds) {
  return object("duration",
                {{"millis", column(milliseconds)}, {"fmt", factory.createCharArray("")}});
}

// The names of variables in a row, and the variables.
std::pair<Array, Array> split(const Named& variables) {
  std::vector<std::string> names;
  std::vector<Array> values;
  for (const auto& [name, value] : variables) {
    names.push_back(name);
    values.push_back(value);
  }
  return {charCell({1, names.size()}, names), factory.createCellArray({1, values.size()}, values)};
}

Array table(double rows, const Named& variables, const std::vector<std::string>& rowNames = {}) {
  const auto [names, values] = split(variables);
  const ArrayDimensions labels = {rowNames.size(), rowNames.empty() ? 0u : 1u};
  return object("table", {{"data", values},
                          {"ndims", factory.createScalar(2.0)},
                          {"nrows", factory.createScalar(rows)},
                          {"rownames", charCell(labels, rowNames)},
                          {"nvars", factory.createScalar(static_cast<double>(variables.size()))},
                          {"varnames", names}});
}

Array texts() {
  Array strings = factory.createArray(ArrayType::ZORVAN_STRING, {3, 1});
  strings[0] = std::optional<std::u16string>(u"gr\u00fc\u00df dich");
  strings[2] = std::optional<std::u16string>(u"");
  return strings;
}

}  // namespace

Array makePlainTable() {
  const Array cells = factory.createCellArray(
      {3, 1},
      {factory.createScalar(1.0), factory.createCharArray("two"), matrix<double>(0, 0, {})});
  return table(3, {{"reading", column<double>({1.5, kNaN, -2})},
                   {"count", column<int32_t>({1, 2, 3})},
                   {"valid", logicalColumn({1, 0, 1})},
                   {"note", texts()},
                   {"grade", column<char16_t>({u'a', u'b', u'c'})},
                   {"day", datetimes({{0, 0}, {kNaN, 0}, {kDay, 0}}, "")},
                   {"took", durations({0.5, kNaN, kDay})},
                   {"extra", cells}});
}

Array makeZonedTimetable() {
  const auto [names, values] = split({{"reading", column<double>({1.5, 2.5, 3.5})}});
  const Array saved =
      record({{"numDims", factory.createScalar(2.0)},
              {"numRows", factory.createScalar(3.0)},
              {"numVars", factory.createScalar(1.0)},
              {"varNames", names},
              {"data", values},
              {"rowTimes", datetimes({{0, 0}, {180 * kDay, 0}, {kNaN, 0}}, "Europe/Berlin")},
              {"dimNames", charCell({1, 2}, {"Time", "Variables"})}});
  return object("timetable", {{"__CustomSave", saved}});
}

Array makeNestedTable() {
  const Array inner = table(2, {{"x", column<double>({5, 6})}, {"y", column<int8_t>({7, 8})}});
  const Array middle = table(2, {{"deep", inner}, {"z", column<double>({9, 10})}});
  return table(2, {{"pair", matrix<double>(2, 2, {1, 2, 3, 4})},
                   {"inner", middle},
                   {"last", column<double>({11, 12})}});
}

Array makeCategoricalTable() {
  const Array colors = object("categorical", {{"categoryNames", charCell({2, 1}, {"red", "green"})},
                                              {"codes", column<uint8_t>({2, 0, 1, 2})}});
  return table(4, {{"color", colors}});
}

Array makeTableWithRowNames() {
  return table(2, {{"height", column<double>({1.25, 1.5})}}, {"first", "second"});
}

}  // namespace tools
