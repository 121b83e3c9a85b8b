// Which converter serves which type of array.

#include "to_python/cell_to_py_list.h"
#include "to_python/convert_zda_to_nd_py_array.h"
#include "to_python/converter_factory.h"
#include "to_python/numeric_converters.h"
#include "to_python/struct_to_py_dict.h"
#include "to_python/text_converters.h"
#include "to_python/zorvan_object_to_py_object.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::ArrayType;
using foundation::zorvandata::codeOf;

namespace {

// The complex twin of a number type.
ArrayType complexTypeOf(ArrayType real) { return static_cast<ArrayType>(codeOf(real) + 10); }

}  // namespace

ConvertZDAToPyObjectFactory::ConverterMaps ConvertZDAToPyObjectFactory::initConverterMap() {
  ConverterMaps maps;
  const auto text = std::make_shared<CharToPyStr>();
  const auto cell = std::make_shared<CellToPyList>();
  const auto record = std::make_shared<StructToPyDict>();
  const auto object = std::make_shared<ZorvanObjectToPyObject>();

  maps.scalar = {
      {ArrayType::LOGICAL, std::make_shared<LogicalToPyBool>()},
      {ArrayType::CHAR, text},
      {ArrayType::ZORVAN_STRING, std::make_shared<ZVStringToPyStr>()},
      {ArrayType::DOUBLE, std::make_shared<DoubleToPyFloat>()},
      {ArrayType::SINGLE, std::make_shared<SingleToPyFloat>()},
      {ArrayType::INT8, std::make_shared<Int8ToPyLong>()},
      {ArrayType::UINT8, std::make_shared<Uint8ToPyLong>()},
      {ArrayType::INT16, std::make_shared<Int16ToPyLong>()},
      {ArrayType::UINT16, std::make_shared<Uint16ToPyLong>()},
      {ArrayType::INT32, std::make_shared<Int32ToPyLong>()},
      {ArrayType::UINT32, std::make_shared<Uint32ToPyLong>()},
      {ArrayType::INT64, std::make_shared<Int64ToPyLong>()},
      {ArrayType::UINT64, std::make_shared<Uint64ToPyLong>()},
      {ArrayType::CELL, cell},
      {ArrayType::STRUCT, record},
      {ArrayType::VALUE_OBJECT, object},
      {ArrayType::HANDLE_OBJECT_REF, object},
  };
  for (int code = codeOf(ArrayType::DOUBLE); code <= codeOf(ArrayType::UINT64); ++code) {
    const auto type = static_cast<ArrayType>(code);
    maps.scalar[complexTypeOf(type)] = maps.scalar.at(type);
  }

  maps.matrix = {
      {ArrayType::LOGICAL, std::make_shared<ConvertZDAToNdPyArray>()},
      {ArrayType::CHAR, text},
      {ArrayType::ZORVAN_STRING, std::make_shared<ZVStringToPyList>()},
      {ArrayType::CELL, cell},
      {ArrayType::STRUCT, record},
      {ArrayType::VALUE_OBJECT, object},
      {ArrayType::HANDLE_OBJECT_REF, object},
  };
  for (int code = codeOf(ArrayType::DOUBLE); code <= codeOf(ArrayType::COMPLEX_UINT64); ++code) {
    maps.matrix[static_cast<ArrayType>(code)] = std::make_shared<ConvertZDAToNdPyArray>();
  }
  return maps;
}

}  // namespace PythonZorvanDataArray::detail
