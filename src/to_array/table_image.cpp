#include "to_array/table_image.h"

#include <functional>
#include <initializer_list>

namespace PythonZorvanDataArray::detail {

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
// A row of texts, each of which must outlive the value.
Value texts(std::vector<std::string_view> row) {
  return [row = std::move(row)](TapeBuilder& tape) {
    tape.openCell(row.size());
    for (const std::string_view each : row) {
      tape.element();
      tape.text(each);
    }
    tape.closeCell();
  };
}

void noNumbers(TapeBuilder& tape) { tape.dense(ArrayType::DOUBLE, Dimensions(0, 0)); }
void noFields(TapeBuilder& tape) { appendRecord(tape, "", {}); }

void appendProperties(TapeBuilder& tape) {
  appendRecord(tape, "",
               {{"useVariableNamesOriginal", flag(false)},
                {"useDimensionNamesOriginal", flag(false)},
                {"Description", text("")},
                {"CustomProps", noFields},
                {"VariableCustomProps", noFields},
                {"DimensionNames", texts({"Row", "Variables"})},
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
                {"reservedNames", texts({":"})},
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

// The variables' names and data: all but the row times.
class Variables {
 public:
  explicit Variables(const TableVariables& all) : all_(all) {}

  size_t count() const { return all_.names.size() - (all_.times ? 1 : 0); }
  Value names() const {
    std::vector<std::string_view> row;
    for (size_t i = 0; i < all_.names.size(); ++i) {
      if (i != all_.times) row.push_back(all_.names[i]);
    }
    return texts(std::move(row));
  }
  Value data() const {
    return [this](TapeBuilder& tape) {
      tape.openCell(count());
      for (size_t i = 0; i < all_.data.size(); ++i) {
        if (i == all_.times) continue;
        tape.element();
        tape.array(all_.data[i]);
      }
      tape.closeCell();
    };
  }

 private:
  const TableVariables& all_;
};

void appendTimetableImage(TapeBuilder& tape, const TableVariables& all) {
  const Variables variables(all);
  const size_t times = *all.times;
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
                {"numRows", number(all.rows)},
                {"numVars", number(variables.count())},
                {"varDescriptions", emptyCell(0, 0)},
                {"varUnits", emptyCell(0, 0)},
                {"timeEvents", noNumbers},
                {"varContinuity", emptyCell(0, 0)},
                {"arrayProps", appendArrayProperties},
                {"varNames", variables.names()},
                {"data", variables.data()},
                {"rowTimes", [&](TapeBuilder& image) { image.array(all.data[times]); }},
                {"dimNames", texts({all.names[times], "Variables"})}});
}

}  // namespace

void appendTable(TapeBuilder& tape, const TableVariables& all) {
  if (all.times) {
    const auto image = [&all](TapeBuilder& object) { appendTimetableImage(object, all); };
    return appendRecord(tape, "timetable", {{"__CustomSave", image}});
  }
  const Variables variables(all);
  appendRecord(tape, "table",
               {{"data", variables.data()},
                {"ndims", number(2.0)},
                {"nrows", number(all.rows)},
                {"rownames", emptyCell(0, 0)},
                {"nvars", number(variables.count())},
                {"varnames", variables.names()},
                {"props", appendProperties},
                {"rowDim", appendRowDimension}});
}

}  // namespace PythonZorvanDataArray::detail
