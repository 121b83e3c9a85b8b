// Numbers on their way between Python objects and elements of any type.
//
// One rule converts everywhere: floating classes round to the nearest value, integer classes take
// exact values only, logical takes any non-zero number as true; a number out of range is an
// OverflowError, one without a counterpart a ValueError, a complex number for a real element a
// TypeError. Nothing wraps and nothing is cut off.
#pragma once

#include "element_types.h"
#include "python_api.h"

namespace ndarray {

// A real number as wide as any component.
struct Real {
  enum class Kind { kSigned, kUnsigned, kFloating };

  static Real of(std::int64_t value);
  static Real of(std::uint64_t value);
  static Real of(double value);

  Kind kind = Kind::kSigned;
  union {
    std::int64_t as_signed = 0;
    std::uint64_t as_unsigned;
    double as_floating;
  };
};

struct Number {
  Real real;
  Real imaginary;
  bool is_complex = false;
};

// Reads a Python number, or what exports a buffer of a single number, for an element of the class.
// May run Python code.
Number numberFromPython(PyObject* object, ElementClass target);

// Element access in memory of any alignment.
Number loadElement(ElementType type, const char* from);
void storeElement(ElementType type, const Number& number, char* to);

// Elements of one type into elements of another; the memories do not overlap.
void convertElements(ElementType from_type, const char* from, ElementType to_type, char* to,
                     std::size_t count);

// NaN is not zero.
bool isNonZero(const Number& number);

// bool, int, float or complex. OverflowError for complex integers that a complex cannot hold.
Ref elementToPython(ElementType type, const char* from);

}  // namespace ndarray
