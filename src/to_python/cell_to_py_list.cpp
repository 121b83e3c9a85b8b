#include "to_python/cell_to_py_list.h"

#include "to_python/converter_factory.h"
#include "to_python/vectors.h"
#include "util/message_catalogue.h"
#include "util/nesting_guard.h"
#include "util/python_error.h"
#include "zorvandata/typed_array.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Item;
using foundation::zorvandata::ItemList;

namespace {

bool isEmptyElement(const Item& item) {
  switch (item.form()) {
    case Item::Form::kEmpty:
      return true;
    case Item::Form::kText:
      return item.utf8().empty();
    case Item::Form::kArray:
      return item.array().elements() == 0;
    default:
      return false;
  }
}

}  // namespace

PyObject* CellToPyList::convert(const Array& array) const {
  foundation::zorvandata::detail::checkType(array, ArrayType::CELL);
  if (!isVector(array)) {
    setPythonErrorStr(PyExc_ValueError, formatMessage(CellArrayFromZorvan));
    return nullptr;
  }
  const PythonUtil::NestingGuard level(PythonUtil::kMaxNesting);
  if (!level) return nullptr;
  const ItemList& items = array.impl().items();
  return makeList(items.size(), [&items](size_t i) {
    return isEmptyElement(items[i]) ? PyList_New(0)
                                    : ConvertZDAToPyObjectFactory::convertElement(items, i);
  });
}

}  // namespace PythonZorvanDataArray::detail
