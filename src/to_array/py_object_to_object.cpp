#include "to_array/py_object_to_object.h"

#include "types/zorvan_object_type.h"
#include "util/message_catalogue.h"
#include "util/reference.h"

namespace PythonZorvanDataArray::detail {

void PyObjectToObject::append(Encoder& to, PyObject* obj, const Options&) const {
  const ZorvanObject& record = *zorvanObjectRecord(obj);
  if (record.indices.empty()) return to.tape().array(record.array);
  if (record.indices.size() == record.dims.size()) return to.tape().array(record.element);
  PythonUtil::raise(PyExc_IndexError, formatMessage(NumIndexNotEqualToNumDim, record.indices.size(),
                                                    record.dims.size()));
}

}  // namespace PythonZorvanDataArray::detail
