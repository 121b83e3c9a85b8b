#include "to_array/converter_factory.h"

#include "to_array/date_time_objects.h"
#include "to_array/pandas_objects.h"
#include "types/ndpy_array_bridge.h"
#include "util/message_catalogue.h"
#include "util/reference.h"
#include "util/type_names.h"

namespace PythonZorvanDataArray::detail {

using PythonUtil::raise;

namespace {

[[noreturn]] void refuse(const std::string& typeName) {
  raise(PyExc_TypeError, formatMessage(UnsupportedPythonData, typeName));
}

// Of a class written in Python; the many scalar types of numpy are told apart from those quickly.
bool isNumpyArraySubclass(PyObject* obj) {
  return (PyType_GetFlags(Py_TYPE(obj)) & Py_TPFLAGS_HEAPTYPE) != 0 &&
         isInstanceOf(obj, "numpy", "ndarray");
}

}  // namespace

const ConvertToZorvanDataArrayFactory::ConverterMap&
ConvertToZorvanDataArrayFactory::converterMap() {
  static const ConverterMap map = initConverterMap();
  return map;
}

std::string ConvertToZorvanDataArrayFactory::getTypeName(PyObject* obj) {
  std::string name = typeNameOf(Py_TYPE(obj));
  if (name.empty()) refuse(getUnqualifiedName(obj));
  return name;
}

const ConvertToZorvanDataArray& ConvertToZorvanDataArrayFactory::findConverter(PyObject* obj) {
  const ConverterMap& map = converterMap();
  const std::string name = getTypeName(obj);
  const auto found = map.find(name);
  if (found != map.end()) {
    const Entry& entry = found->second;
    if (!entry.isReal || entry.isReal(obj)) return *entry.converter;
  } else if (!PythonNdPyArray::ndpyCapsule) {
    raise(PyExc_TypeError, formatMessage(CapsuleIsNull));
  } else if (PythonNdPyArray::exportsBuffer(obj)) {
    return *map.at(isNumpyArraySubclass(obj) ? "numpy.ndarray" : "<buffer>").converter;
  } else if (isPandasDataFrame(obj)) {
    return *map.at("pandas.DataFrame").converter;
  } else if (PyMapping_Check(obj)) {
    return *map.at("zorvan.dictionary").converter;
  }
  refuse(name);
}

}  // namespace PythonZorvanDataArray::detail
