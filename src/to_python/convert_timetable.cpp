// The engine's timetable as a pandas.DataFrame whose index is the row times.
#include "to_python/data_frame_assembly.h"
#include "to_python/table_image.h"
#include "to_python/text_converters.h"
#include "to_python/zorvan_object_to_py_object.h"
#include "util/message_catalogue.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::StructArray;
using foundation::zorvandata::ZorvanFieldIdentifier;
using PythonUtil::PyObjectWithGuard;

namespace {

constexpr char kClass[] = "timetable";

// What is read of the saved image.
struct SavedTimeTable {
  Array data;
  Array varNames;
  Array rowTimes;
  Array dimNames;
};

std::optional<Array> fieldOf(const StructArray& saved, const char* name) {
  const auto& layout = *saved.impl().layout();
  if (layout.find(name) < layout.names.size()) return saved[0][ZorvanFieldIdentifier(name)];
  setTableError(formatMessage(PropertyNotFoundInObject, name, kClass));
  return std::nullopt;
}

std::optional<SavedTimeTable> readTimeTable(const Array& array) {
  const auto saved = propertyOf(array, "__CustomSave", {ArrayType::STRUCT});
  if (!saved) return std::nullopt;
  if (saved->getNumberOfElements() != 1) {
    setPythonErrorStr(PyExc_ValueError, formatMessage(StructArrayFromZorvan));
    return std::nullopt;
  }
  const StructArray fields(*saved);
  std::optional<Array> found[4];
  size_t i = 0;
  for (const char* name : {"data", "varNames", "rowTimes", "dimNames"}) {
    found[i] = fieldOf(fields, name);
    if (!found[i++]) return std::nullopt;
  }
  return SavedTimeTable{*found[0], *found[1], *found[2], *found[3]};
}

// The first dimension's name.
PyObject* convertIndexName(const Array& dimNames) {
  static const CharToPyStr toText;
  if (dimNames.getType() == ArrayType::CELL && !dimNames.isEmpty()) {
    const Array name = foundation::zorvandata::TypedArray<Array>(dimNames)[0];
    if (name.getType() == ArrayType::CHAR) return toText.convert(name);
  }
  setTableError("'dimNames' of ZORVAN timetable do not begin with a text");
  return nullptr;
}

Array makeTable(const SavedTimeTable& saved,
                const foundation::zorvandata::standalone::ClientArrayFactory& factory) {
  Array table = factory.createValueObjectScalar({"table"}, {{"data"}, {"varnames"}, {"rownames"}});
  table[0]["data"] = saved.data;
  table[0]["varnames"] = saved.varNames;
  table[0]["rownames"] = factory.createCellArray({0, 0});
  return table;
}

}  // namespace

PyObject* ZorvanObjectToPyObject::convertRowTimes(const Array& rowTimes) const {
  const std::string& className = valueObjectClass(rowTimes);
  PyObjectWithGuard index;
  if (className == "datetime" || className == "duration") {
    index = PyObjectWithGuard::owned(processDurationAndDateTimeColumnData(rowTimes));
    // A single time stands for itself, which NaT cannot.
    if (index && PyObject_Size(index.get()) == 1 && !PyObjectWithGuard::owned(convert(rowTimes))) {
      index = {};
    }
  }
  if (!index) setPythonErrorStr(PyExc_TypeError, formatMessage(InvalidRowTimesIndexTimeTable));
  return index.release();
}

PyObject* ZorvanObjectToPyObject::convertTimeTable(const Array& array) const {
  if (!canMakeDataFrames()) return convertToGenericZorvanDotObject(array);
  const auto saved = readTimeTable(array);
  if (!saved) return nullptr;
  const auto name = PyObjectWithGuard::owned(convertIndexName(saved->dimNames));
  if (!name) return nullptr;
  const auto times = PyObjectWithGuard::owned(convertRowTimes(saved->rowTimes));
  if (!times) return nullptr;
  auto frame = PyObjectWithGuard::owned(convertTable(makeTable(*saved, getFactory())));
  if (!frame || !setDataFrameIndex(frame.get(), times.get(), "row times")) return nullptr;
  const auto index = PyObjectWithGuard::owned(PyObject_GetAttrString(frame.get(), "index"));
  if (!index || PyObject_SetAttrString(index.get(), "name", name.get()) != 0) return nullptr;
  return frame.release();
}

}  // namespace PythonZorvanDataArray::detail
