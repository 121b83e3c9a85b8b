// The engine's timetable as a pandas.DataFrame whose index is the row times.
#include "to_python/data_frame_assembly.h"
#include "to_python/decoder.h"
#include "to_python/table_columns.h"
#include "to_python/table_image.h"
#include "util/message_catalogue.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::Items;
using foundation::zorvandata::makeArray;
using foundation::zorvandata::RecordReader;
using PythonUtil::check;
using PythonUtil::checked;
using PythonUtil::PyObjectWithGuard;
using PythonUtil::raise;

namespace {

// What is read of the saved image.
struct SavedTimeTable {
  Array data;
  Array varNames;
  Array rowTimes;
  Array dimNames;
};

SavedTimeTable readTimeTable(const Array& array) {
  const Array saved = propertyOf(array, "__CustomSave", {ArrayType::STRUCT});
  if (saved.getNumberOfElements() != 1) {
    raise(PyExc_ValueError, formatMessage(StructArrayFromZorvan));
  }
  const RecordReader fields(saved);
  const auto fieldOf = [&fields](const char* name) {
    const auto value = fields.find(name);
    if (!value) throwTableError(formatMessage(PropertyNotFoundInObject, name, "timetable"));
    return value->arrayHere();
  };
  return {fieldOf("data"), fieldOf("varNames"), fieldOf("rowTimes"), fieldOf("dimNames")};
}

// The first dimension's name.
PyObjectWithGuard makeIndexName(Decoder& decoder, const Array& dimNames) {
  if (dimNames.getType() == ArrayType::CELL && !dimNames.isEmpty()) {
    const Array name = dimNames.impl().items().get(0);
    if (name.getType() == ArrayType::CHAR) return decoder.array(name);
  }
  throwTableError("'dimNames' of ZORVAN timetable do not begin with a text");
}

PyObjectWithGuard makeRowTimes(Decoder& decoder, const Array& rowTimes) {
  const std::string_view className = valueObjectClass(rowTimes);
  if (className == "datetime" || className == "duration") {
    try {
      auto index = makeTimeColumn(rowTimes);
      const Py_ssize_t count = PyObject_Size(index.get());
      // A single time stands for itself, which NaT cannot.
      if (count == 1) decoder.array(rowTimes);
      if (count >= 0) return index;
    } catch (const PythonUtil::PythonErrorSet&) {
      PyErr_Clear();  // told below
    }
  }
  raise(PyExc_TypeError, formatMessage(InvalidRowTimesIndexTimeTable));
}

Array tableOf(const SavedTimeTable& saved) {
  const Array noNames = makeArray(ArrayType::CELL, Dimensions(0, 0), Items());
  return makeArray(ArrayType::VALUE_OBJECT, Dimensions::scalar(),
                   Items({saved.data, saved.varNames, noNames}),
                   foundation::zorvandata::makeLayout("table", {"data", "varnames", "rownames"}));
}

}  // namespace

PyObjectWithGuard makeTimetable(Decoder& decoder, const Array& timetable) {
  if (!canMakeDataFrames()) return makeZorvanObject(timetable);
  const SavedTimeTable saved = readTimeTable(timetable);
  const auto name = makeIndexName(decoder, saved.dimNames);
  const auto times = makeRowTimes(decoder, saved.rowTimes);
  auto frame = makeTable(decoder, tableOf(saved));
  setDataFrameIndex(frame.get(), times.get(), "row times");
  const auto index = checked(PyObject_GetAttrString(frame.get(), "index"));
  check(PyObject_SetAttrString(index.get(), "name", name.get()));
  return frame;
}

}  // namespace PythonZorvanDataArray::detail
