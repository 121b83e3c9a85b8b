#include "to_array/scalar_converters.h"

#include "util/message_catalogue.h"
#include "util/reference.h"

namespace PythonZorvanDataArray::detail {

void PyComplexToDouble::append(Encoder& to, PyObject* obj, const Options&) const {
  to.tape().complexReal(PyComplex_RealAsDouble(obj), PyComplex_ImagAsDouble(obj));
}

void PyNoneToError::append(Encoder&, PyObject*, const Options&) const {
  PythonUtil::raise(PyExc_TypeError, formatMessage(NoneNotSupported));
}

}  // namespace PythonZorvanDataArray::detail
