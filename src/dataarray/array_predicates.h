// Questions about element types that several converters ask.
#pragma once

#include <optional>

#include "zorvandata/array.h"

namespace PythonZorvanDataArray::detail {

// Engaged, and not of type UNKNOWN.
bool isValidArr(const std::optional<foundation::zorvandata::Array>& array);

// lo <= type <= hi, by code.
bool isWithinRangeInclusive(foundation::zorvandata::ArrayType type,
                            foundation::zorvandata::ArrayType lo,
                            foundation::zorvandata::ArrayType hi);

// Numbers, real or complex.
bool isArithmeticType(foundation::zorvandata::ArrayType type);
// Double or single.
bool isRealFloatingPointType(foundation::zorvandata::ArrayType type);
// The eight integer types.
bool isRealIntegerType(foundation::zorvandata::ArrayType type);
bool isComplexType(foundation::zorvandata::ArrayType type);

// How a dictionary stores its keys or its values. The two are deliberately no exact opposites: a
// cell array is both.
bool shouldBeMarkedCombined(const foundation::zorvandata::Array& array);
bool shouldBeStoredAsCell(const foundation::zorvandata::Array& array);

}  // namespace PythonZorvanDataArray::detail
