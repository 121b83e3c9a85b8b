#include "to_python/zorvan_object_to_py_object.h"

#include "to_python/converter_factory.h"
#include "to_python/time_values.h"
#include "types/zorvan_object_type.h"
#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::codeOf;
using foundation::zorvandata::Item;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::ValueObject;
using foundation::zorvandata::ZorvanPropertyIdentifier;
using PythonUtil::PyObjectWithGuard;

namespace {

constexpr char kDatetimeClass[] = "datetime";
constexpr char kDurationClass[] = "duration";

}  // namespace

PyObject* ZorvanObjectToPyObject::convert(const Array& array) const {
  if (isSparse(array)) {
    setSparseError();
    return nullptr;
  }
  switch (array.getType()) {
    case ArrayType::VALUE_OBJECT:
      return convertValueObject(array);
    case ArrayType::HANDLE_OBJECT_REF:
      return convertToGenericZorvanDotObject(array);
    default:
      setUnsupportedTypeError(array.getType());
      return nullptr;
  }
}

// Dates and durations come in long lists: no array is made of each.
PyObject* ZorvanObjectToPyObject::convertItem(const ItemList& items, size_t i) const {
  const Item item = items[i];
  if (item.form() == Item::Form::kElement && item.type() == ArrayType::VALUE_OBJECT) {
    const ObjectElement object{item.array(), item.element()};
    const std::string& className = item.array().layout()->className;
    if (className == kDatetimeClass) return convertDatetime(object);
    if (className == kDurationClass) return convertDuration(object);
  }
  return ConvertZDAToPyObject::convertItem(items, i);
}

PyObject* ZorvanObjectToPyObject::convertValueObject(const Array& array) const {
  const std::string& className = array.impl().layout()->className;
  if (className == kDatetimeClass) {
    return isOneObject(array, kDatetimeClass) ? convertDatetime({array.impl()}) : nullptr;
  }
  if (className == kDurationClass) {
    return isOneObject(array, kDurationClass) ? convertDuration({array.impl()}) : nullptr;
  }
  if (className == "dictionary") return convertDictionary(array);
  if (className == "table") return convertTable(array);
  if (className == "timetable") return convertTimeTable(array);
  if (className == "missing") return Py_NewRef(Py_None);
  return convertToGenericZorvanDotObject(array);
}

PyObject* ZorvanObjectToPyObject::convertToGenericZorvanDotObject(const Array& array) const {
  auto object =
      PyObjectWithGuard::owned(zorvanObject_new_internal(zorvanObjectType, nullptr, nullptr));
  if (!object) return nullptr;
  ZorvanObject& record = *zorvanObjectRecord(object.get());
  record.array = array;
  record.typeCode = codeOf(array.getType());
  record.dims = array.getDimensions();
  return object.release();
}

ArrayType ZorvanObjectToPyObject::getPropertyValueType(
    const ValueObject& object, const ZorvanPropertyIdentifier& property) const {
  return object.hasProperty(property) ? object[property].getType() : ArrayType::UNKNOWN;
}

PyObject* ZorvanObjectToPyObject::getPropertyValue(const ValueObject& object,
                                                   const ZorvanPropertyIdentifier& property,
                                                   const ConvertZDAToPyObject* converter) const {
  if (!converter || !object.hasProperty(property)) return nullptr;
  return converter->convert(object[property]);
}

}  // namespace PythonZorvanDataArray::detail
