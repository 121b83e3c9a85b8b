#include "to_python/cell_to_py_list.h"

#include "to_python/column_to_py_list.h"
#include "to_python/vectors.h"
#include "util/message_catalogue.h"
#include "util/nesting_guard.h"
#include "util/python_error.h"
#include "zorvandata/typed_array.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;

PyObject* CellToPyList::convert(const Array& array) const {
  foundation::zorvandata::detail::checkType(array, ArrayType::CELL);
  if (!isVector(array)) {
    setPythonErrorStr(PyExc_ValueError, formatMessage(CellArrayFromZorvan));
    return nullptr;
  }
  const PythonUtil::NestingGuard level(PythonUtil::kMaxNesting);
  if (!level) return nullptr;
  return itemsToList(array.impl().items(), Empties::kAsLists);
}

}  // namespace PythonZorvanDataArray::detail
