#include "to_python/struct_to_py_dict.h"

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
using PythonUtil::PyObjectWithGuard;

namespace {

bool addField(PyObject* dict, const ArrayImpl& record, size_t field, size_t element) {
  const std::string& name = record.layout()->names[field];
  const auto key = PyObjectWithGuard::owned(
      PyUnicode_DecodeUTF8(name.data(), static_cast<Py_ssize_t>(name.size()), "strict"));
  if (!key) return false;
  const auto value = PyObjectWithGuard::owned(ConvertZDAToPyObjectFactory::convertElement(
      record.items(), record.itemIndex(field, element)));
  return value && PyDict_SetItem(dict, key.get(), value.get()) == 0;
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
  const PythonUtil::NestingGuard level(PythonUtil::kMaxNesting);
  if (!level) return nullptr;

  auto dict = PyObjectWithGuard::owned(PyDict_New());
  if (!dict) return nullptr;
  const ArrayImpl& record = array.impl();
  for (size_t field = 0; field < record.layout()->names.size(); ++field) {
    if (!addField(dict.get(), record, field, element)) return nullptr;
  }
  return dict.release();
}

}  // namespace PythonZorvanDataArray::detail
