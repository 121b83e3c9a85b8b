#include "to_array/set_converter.h"

#include "util/reference.h"

namespace PythonZorvanDataArray::detail {

// What code that runs meanwhile does to the set does not count.
void PySetToCell::append(Encoder& to, PyObject* obj, const Options&) const {
  const auto elements = PythonUtil::checked(PySequence_List(obj));
  to.appendSequence(elements.get());
}

}  // namespace PythonZorvanDataArray::detail
