#include "to_python/create_py_object.h"

#include "to_python/conversion_scope.h"
#include "to_python/converter_factory.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;

PyObject* createPyObject(Array& array) noexcept {
  try {
    const ArrayType type = array.getType();
    if (isSparse(type)) {
      detail::setSparseError();
      return nullptr;
    }
    if (type == ArrayType::UNKNOWN || type == ArrayType::ENUMERATION) {
      detail::setUnsupportedTypeError(type);
      return nullptr;
    }
    const detail::ConversionScope scope;
    return detail::ConvertZDAToPyObjectFactory::convertArray(array);
  } catch (...) {
    PythonUtil::setPythonErrorFromException();
    return nullptr;
  }
}

}  // namespace PythonZorvanDataArray
