#include "to_array/py_object_to_object.h"

#include "types/zorvan_object_type.h"
#include "util/message_catalogue.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;

std::optional<Array> PyObjectToObject::convert(PyObject* obj, const std::optional<Options>&) {
  if (!obj) return std::nullopt;
  const ZorvanObject& record = *zorvanObjectRecord(obj);
  if (record.indices.empty()) return record.array;
  if (record.indices.size() == record.dims.size()) return record.element;
  setPythonErrorStr(PyExc_IndexError, formatMessage(NumIndexNotEqualToNumDim, record.indices.size(),
                                                    record.dims.size()));
  return std::nullopt;
}

}  // namespace PythonZorvanDataArray::detail
