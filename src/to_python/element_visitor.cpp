#include "to_python/element_visitor.h"

#include "to_python/converter_factory.h"

namespace PythonZorvanDataArray::detail {

PyObject* ConvertElementToPythonVisitor::convertCellElement(
    const foundation::zorvandata::ItemList& items, size_t i) {
  return ConvertZDAToPyObjectFactory::convertElement(items, i);
}

PyObject* ConvertElementToPythonVisitor::refuse() {
  setPythonErrorStr(PyExc_ValueError,
                    formatMessage(UnspecifiedTypeNotConvertibleToZORVANDotDictionary));
  return nullptr;
}

}  // namespace PythonZorvanDataArray::detail
