// Converter of engine objects: by class name to the Python value they stand for, all others to
// zorvan.object.
#pragma once

#include <memory>

#include "to_python/convert_zda_to_py_object.h"
#include "zorvandata/typed_array.h"

namespace PythonZorvanDataArray::detail {

class DatetimeMaker;
struct ObjectElement;

class ZorvanObjectToPyObject : public ConvertZDAToPyObject {
 public:
  PyObject* convert(const foundation::zorvandata::Array& array) const override;
  PyObject* convertItem(const foundation::zorvandata::ItemList& items, size_t i) const override;

 private:
  PyObject* convertValueObject(const foundation::zorvandata::Array& array) const;
  // A datetime.datetime, aware if the engine's datetime has a zone; for a time that is finer than
  // microseconds a numpy.datetime64, of UTC if there is a zone. None or several times are an array
  // of the same shape: numpy.datetime64 without a zone, else objects, with numpy's NaT among them.
  // TypeError for a scalar NaT and a zone that Python does not know.
  PyObject* convertDatetime(const ObjectElement& object) const;
  // A datetime.timedelta; for a length that is finer than microseconds a numpy.timedelta64. None or
  // several are an array of numpy.timedelta64. TypeError for a scalar NaT.
  PyObject* convertDuration(const ObjectElement& object) const;
  // A zorvan.dictionary. ValueError for one without keys, with other counts of keys and values, or
  // with keys or values that are structs, objects or enumerations; TypeError for a key that cannot
  // be hashed.
  PyObject* convertDictionary(const foundation::zorvandata::Array& array) const;
  // A pandas.DataFrame with a column for each variable: numpy's types, texts for categories, zoned
  // times in their zone, objects for cells; row names are the index. Tables inside and variables of
  // several columns are flattened. TypeError for variables without a counterpart, ValueError for an
  // image that does not fit together. Without numpy or pandas a zorvan.object.
  PyObject* convertTable(const foundation::zorvandata::Array& array) const;
  // Likewise; the row times are the index, which has the name of the first dimension.
  PyObject* convertTimeTable(const foundation::zorvandata::Array& array) const;
  // A zorvan.object on the array as it is.
  PyObject* convertToGenericZorvanDotObject(const foundation::zorvandata::Array& array) const;

  // Makes the dates of a datetime's zone; empty with a Python error set.
  std::shared_ptr<const DatetimeMaker> datetimeMakerOf(const ObjectElement& object) const;
  // The tzinfo of a datetime, None for one without a zone.
  PyObject* convertTimeZone(const ObjectElement& object) const;
  // A variable of a table, which has passed checkVariable and is one column, as what a frame can
  // be made of.
  PyObject* processColumnData(const foundation::zorvandata::Array& column) const;
  // For datetimes and durations: a one-dimensional numpy array or, with a zone, a DatetimeIndex.
  PyObject* processDurationAndDateTimeColumnData(const foundation::zorvandata::Array& column) const;
  PyObject* convertRowTimes(const foundation::zorvandata::Array& rowTimes) const;
  // UNKNOWN when the object has no such property.
  foundation::zorvandata::ArrayType getPropertyValueType(
      const foundation::zorvandata::ValueObject& object,
      const foundation::zorvandata::ZorvanPropertyIdentifier& property) const;
  // What the converter makes of the property; NULL without an error when there is none.
  PyObject* getPropertyValue(const foundation::zorvandata::ValueObject& object,
                             const foundation::zorvandata::ZorvanPropertyIdentifier& property,
                             const ConvertZDAToPyObject* converter) const;
};

}  // namespace PythonZorvanDataArray::detail
