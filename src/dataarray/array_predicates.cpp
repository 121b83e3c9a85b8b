#include "dataarray/array_predicates.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;

bool isValidArr(const std::optional<Array>& array) {
  return array && array->getType() != ArrayType::UNKNOWN;
}

bool isWithinRangeInclusive(ArrayType type, ArrayType lo, ArrayType hi) {
  return lo <= type && type <= hi;
}

bool isArithmeticType(ArrayType type) {
  return isWithinRangeInclusive(type, ArrayType::DOUBLE, ArrayType::COMPLEX_UINT64);
}

bool isRealFloatingPointType(ArrayType type) {
  return isWithinRangeInclusive(type, ArrayType::DOUBLE, ArrayType::SINGLE);
}

bool isRealIntegerType(ArrayType type) {
  return isWithinRangeInclusive(type, ArrayType::INT8, ArrayType::UINT64);
}

bool isComplexType(ArrayType type) {
  return isWithinRangeInclusive(type, ArrayType::COMPLEX_DOUBLE, ArrayType::COMPLEX_UINT64);
}

bool shouldBeMarkedCombined(const Array& array) {
  const ArrayType type = array.getType();
  if (type == ArrayType::ZORVAN_STRING || type == ArrayType::DOUBLE || type == ArrayType::CELL) {
    return true;
  }
  return isArithmeticType(type) && array.isEmpty();
}

bool shouldBeStoredAsCell(const Array& array) {
  return array.getType() == ArrayType::CELL || !shouldBeMarkedCombined(array);
}

}  // namespace PythonZorvanDataArray::detail
