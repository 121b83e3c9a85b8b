#include "to_array/scalar_converters.h"

#include "util/message_catalogue.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

std::optional<foundation::zorvandata::Array> PyNoneToError::convert(PyObject* obj,
                                                                    const std::optional<Options>&) {
  if (obj) setPythonErrorStr(PyExc_TypeError, formatMessage(NoneNotSupported));
  return std::nullopt;
}

}  // namespace PythonZorvanDataArray::detail
