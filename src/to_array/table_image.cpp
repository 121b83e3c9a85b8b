#include "to_array/table_image.h"

#include <string>
#include <utility>
#include <vector>

#include "zorvandata/array_factory.h"
#include "zorvandata/array_impl.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::makeArray;
using foundation::zorvandata::standalone::ClientArrayFactory;

namespace {

const ClientArrayFactory kFactory;

// A 1-by-1 struct or value object, field by field.
class Record {
 public:
  Record& add(std::string name, const Array& value) {
    names_.push_back(std::move(name));
    items_.append(value);
    return *this;
  }
  Record& addText(std::string name, const char* ascii) {
    return add(std::move(name), kFactory.createCharArray(ascii));
  }
  template <class T>
  Record& addScalar(const std::string& name, const T& value) {
    return add(name, kFactory.createScalar(value));
  }

  Array makeStruct() { return make(ArrayType::STRUCT, ""); }
  Array makeObject(const char* className) { return make(ArrayType::VALUE_OBJECT, className); }

 private:
  Array make(ArrayType type, const char* className) {
    return makeArray(type, Dimensions::scalar(), std::move(items_),
                     foundation::zorvandata::makeLayout(className, std::move(names_)));
  }

  std::vector<std::string> names_;
  ItemList items_;
};

Array makeCellRow(ItemList items) {
  const size_t count = items.size();
  return makeArray(ArrayType::CELL, Dimensions::row(count), std::move(items));
}

Array makeNoNumbers() { return kFactory.createArray(ArrayType::DOUBLE, {0, 0}); }
Array makeNoFields() { return kFactory.createStructArray({1, 1}, {}); }

Array makePropertyRecord() {
  const Array noCells = kFactory.createCellArray({1, 0});
  ItemList dimensionNames;
  dimensionNames.appendText("Row");
  dimensionNames.appendText("Variables");
  return Record()
      .addScalar("useVariableNamesOriginal", false)
      .addScalar("useDimensionNamesOriginal", false)
      .addText("Description", "")
      .add("CustomProps", makeNoFields())
      .add("VariableCustomProps", makeNoFields())
      .add("DimensionNames", makeCellRow(std::move(dimensionNames)))
      .add("DimensionNamesOriginal", noCells)
      .add("VariableNamesOriginal", noCells)
      .add("UserData", makeNoNumbers())
      .add("VariableDescriptions", noCells)
      .add("VariableUnits", noCells)
      .add("VariableContinuity", noCells)
      .addScalar("VersionSavedFrom", 4.0)
      .addScalar("minCompatibleVersion", 1.0)
      .addText("incompatibilityMsg", "")
      .makeStruct();
}

Array makeRowDimension() {
  const Array subscripts = Record()
                               .addScalar("reference", 0.0)
                               .addScalar("forwardedReference", 1.0)
                               .addScalar("assignment", 2.0)
                               .addScalar("deletion", 3.0)
                               .makeStruct();
  // The engine counts the rows anew; it wants this number here whatever the table.
  constexpr double kLength = 5;
  return Record()
      .addText("labelType", "text")
      .addScalar("requireLabels", false)
      .addScalar("requireUniqueLabels", true)
      .addText("DuplicateLabelExceptionID", "ZORVAN:table:DuplicateRowNames")
      .add("reservedNames", kFactory.createCellArray({1, 1}, {kFactory.createCharArray(":")}))
      .add("labels", kFactory.createCellArray({0, 1}))
      .addScalar("length", kLength)
      .addScalar("hasLabels", false)
      .add("subsType", subscripts)
      .makeStruct();
}

Array makeArrayProperties() {
  return Record()
      .addText("Description", "")
      .add("UserData", makeNoNumbers())
      .add("TableCustomProperties", makeNoFields())
      .makeStruct();
}

// The fields of a timetable that are the same for all.
Record startTimetable() {
  Record record;
  record.add("CustomProps", makeNoFields())
      .add("VariableCustomProps", makeNoFields())
      .addScalar("versionSavedFrom", 7.0)
      .addScalar("minCompatibleVersion", int32_t{2})
      .addText("incompatibilityMsg", "")
      .addScalar("numDims", 2.0);
  for (const char* flag :
       {"useVarNamesOrig", "useVarNames2048", "useDimNamesOrig", "useDimNames2048"}) {
    record.addScalar(flag, 0.0);
  }
  for (const char* list : {"dimNamesOrig", "dimNames20482048", "varNamesOrig", "varNames2048"}) {
    record.add(list, kFactory.createCellArray({0, 0}));
  }
  return record;
}

}  // namespace

Array makeTable(TableVariables variables) {
  static const Array propertyRecord = makePropertyRecord();
  static const Array rowDimension = makeRowDimension();
  const auto count = static_cast<double>(variables.names.size());
  return Record()
      .add("data", makeCellRow(std::move(variables.data)))
      .addScalar("ndims", 2.0)
      .addScalar("nrows", static_cast<double>(variables.rows))
      .add("rownames", kFactory.createCellArray({0, 0}))
      .addScalar("nvars", count)
      .add("varnames", makeCellRow(std::move(variables.names)))
      .add("props", propertyRecord)
      .add("rowDim", rowDimension)
      .makeObject("table");
}

Array makeTimetable(TableVariables variables, const RowTimes& times) {
  static const Array arrayProperties = makeArrayProperties();
  const Array noCells = kFactory.createCellArray({0, 0});
  const Array dimensionNames =
      kFactory.createCellArray({1, 2}, {times.name, kFactory.createCharArray("Variables")});
  const auto count = static_cast<double>(variables.names.size());
  const Array image = startTimetable()
                          .addScalar("numRows", static_cast<double>(variables.rows))
                          .addScalar("numVars", count)
                          .add("varDescriptions", noCells)
                          .add("varUnits", noCells)
                          .add("timeEvents", makeNoNumbers())
                          .add("varContinuity", noCells)
                          .add("arrayProps", arrayProperties)
                          .add("varNames", makeCellRow(std::move(variables.names)))
                          .add("data", makeCellRow(std::move(variables.data)))
                          .add("rowTimes", times.data)
                          .add("dimNames", dimensionNames)
                          .makeStruct();
  return Record().add("__CustomSave", image).makeObject("timetable");
}

}  // namespace PythonZorvanDataArray::detail
