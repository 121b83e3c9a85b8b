#include "to_array/table_image.h"

#include <array>
#include <functional>
#include <initializer_list>

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::ShapeBytes;
using foundation::zorvandata::TapeBuilder;

namespace {

// Appends one value.
using Value = std::function<void(TapeBuilder&)>;

struct Field {
  std::string_view name;
  Value value;
};

void appendRecord(TapeBuilder& tape, std::string_view className,
                  std::initializer_list<Field> fields) {
  ShapeBytes shape(className, fields.size());
  for (const Field& field : fields) shape.add(field.name);
  tape.openRecord(className.empty() ? ArrayType::STRUCT : ArrayType::VALUE_OBJECT,
                  tape.shape(shape.bytes()));
  for (const Field& field : fields) field.value(tape);
  tape.closeRecord();
}

Value number(double value) {
  return [value](TapeBuilder& tape) { tape.real(value); };
}
Value number(size_t value) { return number(static_cast<double>(value)); }
Value flag(bool value) {
  return [value](TapeBuilder& tape) { tape.logical(value); };
}
Value text(const char* ascii) {
  return [ascii](TapeBuilder& tape) { tape.text(ascii); };
}
Value emptyCell(size_t rows, size_t columns) {
  return [=](TapeBuilder& tape) {
    const Dimensions dims(rows, columns);
    dims.isRow() ? tape.openCell(0) : tape.openGrid(dims);
    tape.closeCell();
  };
}
template <class Texts>
void appendTexts(TapeBuilder& tape, const Texts& row) {
  tape.openCell(row.size());
  for (const std::string_view each : row) {
    tape.element();
    tape.text(each);
  }
  tape.closeCell();
}

void noNumbers(TapeBuilder& tape) { tape.dense(ArrayType::DOUBLE, Dimensions(0, 0)); }
void dimensionNames(TapeBuilder& tape) {
  appendTexts(tape, std::array<std::string_view, 2>{"Row", "Variables"});
}
void reservedNames(TapeBuilder& tape) { appendTexts(tape, std::array<std::string_view, 1>{":"}); }
void noFields(TapeBuilder& tape) { appendRecord(tape, "", {}); }

void appendProperties(TapeBuilder& tape) {
  appendRecord(tape, "",
               {{"useVariableNamesOriginal", flag(false)},
                {"useDimensionNamesOriginal", flag(false)},
                {"Description", text("")},
                {"CustomProps", noFields},
                {"VariableCustomProps", noFields},
                {"DimensionNames", dimensionNames},
                {"DimensionNamesOriginal", emptyCell(1, 0)},
                {"VariableNamesOriginal", emptyCell(1, 0)},
                {"UserData", noNumbers},
                {"VariableDescriptions", emptyCell(1, 0)},
                {"VariableUnits", emptyCell(1, 0)},
                {"VariableContinuity", emptyCell(1, 0)},
                {"VersionSavedFrom", number(4.0)},
                {"minCompatibleVersion", number(1.0)},
                {"incompatibilityMsg", text("")}});
}

void appendSubscripts(TapeBuilder& tape) {
  appendRecord(tape, "",
               {{"reference", number(0.0)},
                {"forwardedReference", number(1.0)},
                {"assignment", number(2.0)},
                {"deletion", number(3.0)}});
}

void appendRowDimension(TapeBuilder& tape) {
  // The engine counts the rows anew; it wants this number here whatever the table.
  constexpr double kLength = 5;
  appendRecord(tape, "",
               {{"labelType", text("text")},
                {"requireLabels", flag(false)},
                {"requireUniqueLabels", flag(true)},
                {"DuplicateLabelExceptionID", text("ZORVAN:table:DuplicateRowNames")},
                {"reservedNames", reservedNames},
                {"labels", emptyCell(0, 1)},
                {"length", number(kLength)},
                {"hasLabels", flag(false)},
                {"subsType", appendSubscripts}});
}

void appendArrayProperties(TapeBuilder& tape) {
  appendRecord(
      tape, "",
      {{"Description", text("")}, {"UserData", noNumbers}, {"TableCustomProperties", noFields}});
}

Value namesOf(const TableVariables& variables) {
  return [&names = variables.names](TapeBuilder& tape) { appendTexts(tape, names); };
}
Value dataOf(const TableVariables& variables) {
  return [&data = variables.data](TapeBuilder& tape) {
    tape.openCell(data.size());
    for (const Array& column : data) {
      tape.element();
      tape.array(column);
    }
    tape.closeCell();
  };
}

void appendTimetableImage(TapeBuilder& tape, const TableVariables& variables,
                          const RowTimes& times) {
  appendRecord(tape, "",
               {{"CustomProps", noFields},
                {"VariableCustomProps", noFields},
                {"versionSavedFrom", number(7.0)},
                {"minCompatibleVersion",
                 [](TapeBuilder& image) {
                   constexpr int32_t kVersion = 2;
                   image.scalar(ArrayType::INT32, &kVersion);
                 }},
                {"incompatibilityMsg", text("")},
                {"numDims", number(2.0)},
                {"useVarNamesOrig", number(0.0)},
                {"useVarNames2048", number(0.0)},
                {"useDimNamesOrig", number(0.0)},
                {"useDimNames2048", number(0.0)},
                {"dimNamesOrig", emptyCell(0, 0)},
                {"dimNames20482048", emptyCell(0, 0)},
                {"varNamesOrig", emptyCell(0, 0)},
                {"varNames2048", emptyCell(0, 0)},
                {"numRows", number(variables.rows)},
                {"numVars", number(variables.names.size())},
                {"varDescriptions", emptyCell(0, 0)},
                {"varUnits", emptyCell(0, 0)},
                {"timeEvents", noNumbers},
                {"varContinuity", emptyCell(0, 0)},
                {"arrayProps", appendArrayProperties},
                {"varNames", namesOf(variables)},
                {"data", dataOf(variables)},
                {"rowTimes", [&](TapeBuilder& image) { image.array(times.data); }},
                {"dimNames", [&](TapeBuilder& image) {
                   appendTexts(image, std::array<std::string_view, 2>{times.name, "Variables"});
                 }}});
}

}  // namespace

void appendTable(TapeBuilder& tape, const TableVariables& variables,
                 const std::optional<RowTimes>& times) {
  if (times) {
    const auto image = [&](TapeBuilder&) { appendTimetableImage(tape, variables, *times); };
    return appendRecord(tape, "timetable", {{"__CustomSave", image}});
  }
  appendRecord(tape, "table",
               {{"data", dataOf(variables)},
                {"ndims", number(2.0)},
                {"nrows", number(variables.rows)},
                {"rownames", emptyCell(0, 0)},
                {"nvars", number(variables.names.size())},
                {"varnames", namesOf(variables)},
                {"props", appendProperties},
                {"rowDim", appendRowDimension}});
}

}  // namespace PythonZorvanDataArray::detail
