#include "to_array/converter_factory.h"

#include <array>

#include "to_array/argument_scope.h"
#include "to_array/date_time_objects.h"
#include "to_array/pandas_objects.h"
#include "types/ndpy_array_bridge.h"
#include "util/message_catalogue.h"
#include "util/python_error.h"
#include "util/type_names.h"

namespace PythonZorvanDataArray {

using foundation::zorvandata::Array;
using foundation::zorvandata::ItemList;

std::optional<Array> createZorvanDataArray(PyObject* obj) {
  const detail::ArgumentScope scope;
  return detail::createZDA(obj, std::nullopt);
}

namespace detail {
namespace {

using Converter = std::shared_ptr<ConvertToZorvanDataArray>;

void setUnsupported(const std::string& typeName) {
  setPythonErrorStr(PyExc_TypeError, formatMessage(UnsupportedPythonData, typeName));
}

// Of a class written in Python; the many scalar types of numpy are told apart from those quickly.
bool isNumpyArraySubclass(PyObject* obj) {
  return (PyType_GetFlags(Py_TYPE(obj)) & Py_TPFLAGS_HEAPTYPE) != 0 &&
         isInstanceOf(obj, "numpy", "ndarray");
}

// The converters of the interpreter's own static types, found without looking at names. Those types
// live as long as the process and cannot be renamed.
class BuiltinConverters {
 public:
  explicit BuiltinConverters(const ConvertToZorvanDataArrayFactory::ConverterMap& map)
      : rows_{{{&PyFloat_Type, map.at("float").converter},
               {&PyLong_Type, map.at("int").converter},
               {&PyUnicode_Type, map.at("str").converter},
               {&PyBool_Type, map.at("bool").converter},
               {&PyList_Type, map.at("list").converter},
               {&PyTuple_Type, map.at("tuple").converter},
               {&PyDict_Type, map.at("dict").converter},
               {&PyComplex_Type, map.at("complex").converter}}} {}

  // NULL when the type is none of them.
  const Converter* find(PyTypeObject* type) const {
    for (const Row& row : rows_) {
      if (row.type == type) return &row.converter;
    }
    return nullptr;
  }

 private:
  struct Row {
    PyTypeObject* type;
    Converter converter;
  };
  std::array<Row, 8> rows_;
};

}  // namespace

const ConvertToZorvanDataArrayFactory::ConverterMap&
ConvertToZorvanDataArrayFactory::converterMap() {
  static const ConverterMap map = initConverterMap();
  return map;
}

bool ConvertToZorvanDataArrayFactory::hasConverter(const std::string& name) {
  return converterMap().find(name) != converterMap().end();
}

std::string ConvertToZorvanDataArrayFactory::getTypeName(PyObject* obj) {
  if (!obj) {
    setPythonErrorStr(PyExc_TypeError, formatMessage(NullNotSupported));
    return "";
  }
  std::string name = typeNameOf(Py_TYPE(obj));
  if (!name.empty()) return name;
  setUnsupported(getUnqualifiedName(obj));
  return "NULL";
}

std::shared_ptr<ConvertToZorvanDataArray> ConvertToZorvanDataArrayFactory::getConverter(
    PyObject* obj) {
  return find(obj);
}

ConvertToZorvanDataArray& ConvertToZorvanDataArrayFactory::findConverter(PyObject* obj) {
  return *find(obj);
}

const std::shared_ptr<ConvertToZorvanDataArray>& ConvertToZorvanDataArrayFactory::find(
    PyObject* obj) {
  static const BuiltinConverters builtins(converterMap());
  if (obj) {
    if (const Converter* builtin = builtins.find(Py_TYPE(obj))) return *builtin;
  }
  const ConverterMap& map = converterMap();
  const Converter& null = map.at("NULL").converter;
  if (!obj) return null;
  const std::string name = getTypeName(obj);
  if (PyErr_Occurred()) return null;
  const auto found = map.find(name);
  if (found != map.end()) {
    const Entry& entry = found->second;
    if (!entry.isReal || entry.isReal(obj)) return entry.converter;
  } else if (!PythonNdPyArray::ndpyCapsule) {
    setPythonErrorStr(PyExc_TypeError, formatMessage(CapsuleIsNull));
    return null;
  } else if (PythonNdPyArray::exportsBuffer(obj)) {
    return map.at(isNumpyArraySubclass(obj) ? "numpy.ndarray" : "<buffer>").converter;
  } else if (isPandasDataFrame(obj)) {
    return map.at("pandas.DataFrame").converter;
  } else if (PyMapping_Check(obj)) {
    return map.at("zorvan.dictionary").converter;
  }
  setUnsupported(name);
  return null;
}

std::optional<Array> createZDA(PyObject* obj,
                               const std::optional<ConvertToZorvanDataArray::Options>& options) {
  if (!obj) {
    setPythonErrorStr(PyExc_RuntimeError, formatMessage(NullNotSupported));
    return std::nullopt;
  }
  return ConvertToZorvanDataArrayFactory::findConverter(obj).convert(obj, options);
}

bool appendZDA(ItemList& items, PyObject* obj,
               const std::optional<ConvertToZorvanDataArray::Options>& options) {
  return ConvertToZorvanDataArrayFactory::findConverter(obj).appendTo(items, obj, options);
}

}  // namespace detail
}  // namespace PythonZorvanDataArray
