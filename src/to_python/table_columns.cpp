#include "to_python/table_columns.h"

#include <string>

#include "to_python/column_to_py_list.h"
#include "to_python/convert_zda_to_nd_py_array.h"
#include "to_python/converter_factory.h"
#include "to_python/imported_attribute.h"
#include "to_python/table_arrow_texts.h"
#include "to_python/table_image.h"
#include "to_python/text_converters.h"
#include "to_python/vectors.h"
#include "util/message_catalogue.h"
#include "util/python_error.h"
#include "zorvandata/typed_array.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::nameOf;
using foundation::zorvandata::TypedArray;
using PythonUtil::PyObjectWithGuard;

namespace {

const char* numpyName(ArrayType type) {
  constexpr int kFirst = foundation::zorvandata::codeOf(ArrayType::DOUBLE);
  constexpr const char* kNames[] = {"float64", "float32", "int8",       "uint8",
                                    "int16",   "uint16",  "int32",      "uint32",
                                    "int64",   "uint64",  "complex128", "complex64"};
  if (type == ArrayType::LOGICAL) return "bool";
  const int i = foundation::zorvandata::codeOf(type) - kFirst;
  return 0 <= i && i < static_cast<int>(std::size(kNames)) ? kNames[i] : nullptr;
}

bool refuse(PyObject* error, const std::string& text) {
  setPythonErrorStr(error, text);
  return false;
}

bool isRowOrColumn(const Array& values) {
  const foundation::zorvandata::Dimensions& dims = values.dimensions();
  return dims.count() == 2 && (dims[0] <= 1 || dims[1] == 1);
}

bool checkObject(const std::string& className) {
  for (const char* known : {"categorical", "datetime", "duration", "dictionary"}) {
    if (className == known) return true;
  }
  return refuse(PyExc_TypeError, className == "timetable"
                                     ? formatMessage(UnsupportedNestedTimeTableConversion)
                                     : formatMessage(UnsupportedInputArrayTypeError, className));
}

}  // namespace

bool checkVariable(const Array& values) {
  const ArrayType type = values.getType();
  switch (type) {
    case ArrayType::VALUE_OBJECT:
      return checkObject(valueObjectClass(values));
    case ArrayType::CHAR:
      return isRowOrColumn(values) || refuse(PyExc_ValueError, formatMessage(CharArrayFromZorvan));
    case ArrayType::HANDLE_OBJECT_REF:
      return refuse(PyExc_TypeError, formatMessage(UnsupportedHandleObjectReference));
    case ArrayType::CELL:
    case ArrayType::ZORVAN_STRING:
      return true;
    default:
      break;
  }
  if (numpyName(type)) return true;
  if (!isSparse(values)) {
    return refuse(PyExc_TypeError, formatMessage(UnsupportedZorvanType, nameOf(type)));
  }
  setSparseError();
  return false;
}

PyObject* getNumpyDType(const ArrayType& type) {
  const char* name = numpyName(type);
  return name ? Py_BuildValue("{ss}", "dtype", name) : nullptr;
}

PyObject* createNumpyArray(const Array& values) {
  static ImportedAttribute asarray("numpy", "asarray");
  if (!asarray.get()) return nullptr;
  const auto dtype = PyObjectWithGuard::owned(getNumpyDType(values.getType()));
  if (!dtype) return nullptr;
  const auto memory = PyObjectWithGuard::owned(toNdPyArray(values));
  if (!memory) return nullptr;
  const auto arguments = PyObjectWithGuard::owned(PyTuple_Pack(1, memory.get()));
  if (!arguments) return nullptr;
  const auto matrix =
      PyObjectWithGuard::owned(PyObject_Call(asarray.get(), arguments.get(), dtype.get()));
  return matrix ? PyObject_CallMethod(matrix.get(), "reshape", "i", -1) : nullptr;
}

PyObject* makeCharColumn(const Array& values) {
  static const CharToPyStr toText;
  const char16_t* units = TypedArray<char16_t>(values).begin();
  const size_t rows = values.dimensions()[0];
  const size_t columns = values.dimensions()[1];
  return makeList(rows, [&](size_t row) {
    std::u16string text;
    for (size_t column = 0; column < columns; ++column) text += units[column * rows + row];
    return toText.convert(toText.getFactory().createCharArray(text));
  });
}

PyObject* makeStringColumn(const Array& values) {
  const ItemList& items = values.impl().items();
  if (const auto arrow = makeArrowTexts(items)) return *arrow;
  return itemsToList(items, Empties::kAsTheyAre);
}

PyObject* makeObjectColumn(PyObject* list) {
  static ImportedAttribute series("pandas", "Series");
  if (!series.get()) return nullptr;
  const auto arguments = PyObjectWithGuard::owned(PyTuple_Pack(1, list));
  const auto options = PyObjectWithGuard::owned(Py_BuildValue("{ss}", "dtype", "object"));
  if (!arguments || !options) return nullptr;
  return PyObject_Call(series.get(), arguments.get(), options.get());
}

}  // namespace PythonZorvanDataArray::detail
