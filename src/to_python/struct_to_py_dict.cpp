#include "to_python/struct_to_py_dict.h"

#include "to_python/conversion_scope.h"
#include "to_python/converter_factory.h"
#include "util/message_catalogue.h"
#include "util/nesting_guard.h"
#include "util/py_object_guard.h"
#include "util/python_error.h"
#include "zorvandata/typed_array.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayImpl;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Item;
using foundation::zorvandata::ItemList;
using PythonUtil::PyObjectWithGuard;

namespace {

// `keys` may be NULL with a Python error set.
PyObject* makeDict(const ArrayImpl& record, size_t element,
                   const std::shared_ptr<const FieldKeys>& keys) {
  const PythonUtil::NestingGuard level(PythonUtil::kMaxNesting);
  if (!level || !keys) return nullptr;
  auto dict = PyObjectWithGuard::owned(PyDict_New());
  if (!dict) return nullptr;
  for (size_t field = 0; field < keys->size(); ++field) {
    const auto value = PyObjectWithGuard::owned(ConvertZDAToPyObjectFactory::convertElement(
        record.items(), record.itemIndex(field, element)));
    if (!value || PyDict_SetItem(dict.get(), (*keys)[field].get(), value.get()) != 0) {
      return nullptr;
    }
  }
  return dict.release();
}

}  // namespace

PyObject* StructToPyDict::convert(const Array& array) const {
  foundation::zorvandata::detail::checkType(array, ArrayType::STRUCT);
  if (!index_ && array.getNumberOfElements() != 1) {
    setPythonErrorStr(PyExc_ValueError, formatMessage(StructArrayFromZorvan));
    return nullptr;
  }
  const size_t element = index_.value_or(0);
  foundation::zorvandata::detail::checkIndex(array, element);
  return makeDict(array.impl(), element, makeFieldKeys(*array.impl().layout()));
}

PyObject* StructToPyDict::convertItem(const ItemList& items, size_t i) const {
  const Item item = items[i];
  if (item.form() != Item::Form::kElement) return ConvertZDAToPyObject::convertItem(items, i);
  return makeDict(item.array(), item.element(), sharedFieldKeys(item.array().layout()));
}

}  // namespace PythonZorvanDataArray::detail
