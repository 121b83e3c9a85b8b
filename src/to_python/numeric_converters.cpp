#include "to_python/numeric_converters.h"

#include "to_python/converter_factory.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::Item;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::TypedArray;

bool isArrayComplex(const Array& array) { return isComplex(array.getType()); }

PyObject* LogicalToPyBool::convert(const Array& array) const {
  if (isSparse(array)) {
    setSparseError();
    return nullptr;
  }
  return convertFirstElement(TypedArray<bool>(array));
}

PyObject* LogicalToPyBool::convertItem(const ItemList& items, size_t i) const {
  const Item item = items[i];
  if (item.form() != Item::Form::kScalar) return ConvertZDAToPyObject::convertItem(items, i);
  return convertNumericElem(item.scalar<bool>());
}

}  // namespace PythonZorvanDataArray::detail
