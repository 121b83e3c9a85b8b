// The element types of data arrays: codes, names, C++ types and sizes, all from one list.
//
// The integer codes are a contract: they are printed, travel in messages and key converter tables.
#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>

namespace zorvan::data {
template <class T>
using optional = std::optional<T>;
}  // namespace zorvan::data

// X(member, code, C++ element type): arrays whose elements lie in one dense buffer.
#define ZORVAN_REAL_NUMBER_TYPES(X) \
  X(DOUBLE, 4, double)              \
  X(SINGLE, 5, float)               \
  X(INT8, 6, int8_t)                \
  X(UINT8, 7, uint8_t)              \
  X(INT16, 8, int16_t)              \
  X(UINT16, 9, uint16_t)            \
  X(INT32, 10, int32_t)             \
  X(UINT32, 11, uint32_t)           \
  X(INT64, 12, int64_t)             \
  X(UINT64, 13, uint64_t)

#define ZORVAN_COMPLEX_NUMBER_TYPES(X)          \
  X(COMPLEX_DOUBLE, 14, std::complex<double>)   \
  X(COMPLEX_SINGLE, 15, std::complex<float>)    \
  X(COMPLEX_INT8, 16, std::complex<int8_t>)     \
  X(COMPLEX_UINT8, 17, std::complex<uint8_t>)   \
  X(COMPLEX_INT16, 18, std::complex<int16_t>)   \
  X(COMPLEX_UINT16, 19, std::complex<uint16_t>) \
  X(COMPLEX_INT32, 20, std::complex<int32_t>)   \
  X(COMPLEX_UINT32, 21, std::complex<uint32_t>) \
  X(COMPLEX_INT64, 22, std::complex<int64_t>)   \
  X(COMPLEX_UINT64, 23, std::complex<uint64_t>)

#define ZORVAN_DENSE_TYPES(X) \
  X(LOGICAL, 1, bool)         \
  X(CHAR, 2, char16_t)        \
  ZORVAN_REAL_NUMBER_TYPES(X) \
  ZORVAN_COMPLEX_NUMBER_TYPES(X)

// X(member, code, element view class): arrays whose elements are arrays, texts or references.
#define ZORVAN_ITEM_TYPES(X)                                  \
  X(ZORVAN_STRING, 3, zorvan::data::optional<std::u16string>) \
  X(CELL, 24, Array)                                          \
  X(STRUCT, 25, StructElement)                                \
  X(VALUE_OBJECT, 27, ValueObject)                            \
  X(HANDLE_OBJECT_REF, 28, HandleObjectRef)                   \
  X(ENUMERATION, 29, Enumeration)

// X(member, code): arrays without a typed view of their own.
#define ZORVAN_OTHER_TYPES(X) \
  X(UNKNOWN, 0)               \
  X(OBJECT, 26)               \
  X(SPARSE_LOGICAL, 30)       \
  X(SPARSE_DOUBLE, 31)        \
  X(SPARSE_COMPLEX_DOUBLE, 32)

namespace foundation::zorvandata {

enum class ArrayType : int32_t {
#define ZORVAN_MEMBER(name, code, ...) name = code,
  ZORVAN_DENSE_TYPES(ZORVAN_MEMBER) ZORVAN_ITEM_TYPES(ZORVAN_MEMBER)
      ZORVAN_OTHER_TYPES(ZORVAN_MEMBER)
#undef ZORVAN_MEMBER
};

class Array;
class StructElement;
class ValueObject;
class HandleObjectRef;
class Enumeration;

// ArrayTypeOf<T>::value is the type code of arrays that TypedArray<T> views.
template <class T>
struct ArrayTypeOf;
#define ZORVAN_TRAIT(name, code, type)                  \
  template <>                                           \
  struct ArrayTypeOf<type> {                            \
    static constexpr ArrayType value = ArrayType::name; \
  };
ZORVAN_DENSE_TYPES(ZORVAN_TRAIT)
ZORVAN_ITEM_TYPES(ZORVAN_TRAIT)
#undef ZORVAN_TRAIT

constexpr int codeOf(ArrayType type) { return static_cast<int>(type); }

// The member's name, "?" for a code that is no member.
const char* nameOf(ArrayType type);

// True for the codes 0 to 32.
constexpr bool isKnownCode(int64_t code) { return code >= 0 && code <= 32; }

// True for types whose elements lie in one dense buffer: logical, char and all numbers.
constexpr bool isDense(ArrayType type) {
  return type == ArrayType::LOGICAL || type == ArrayType::CHAR ||
         (type >= ArrayType::DOUBLE && type <= ArrayType::COMPLEX_UINT64);
}

constexpr bool isComplex(ArrayType type) {
  return type >= ArrayType::COMPLEX_DOUBLE && type <= ArrayType::COMPLEX_UINT64;
}

// The type of the parts of complex numbers of a type.
constexpr ArrayType realTypeOf(ArrayType complex) {
  return static_cast<ArrayType>(codeOf(complex) - 10);
}

constexpr bool isSparse(ArrayType type) {
  return type >= ArrayType::SPARSE_LOGICAL && type <= ArrayType::SPARSE_COMPLEX_DOUBLE;
}

// The type of a sparse array's values.
constexpr ArrayType sparseValueType(ArrayType sparse) {
  return sparse == ArrayType::SPARSE_LOGICAL  ? ArrayType::LOGICAL
         : sparse == ArrayType::SPARSE_DOUBLE ? ArrayType::DOUBLE
                                              : ArrayType::COMPLEX_DOUBLE;
}

// Bytes per element of a dense type, 0 for all others.
constexpr size_t elementSize(ArrayType type) {
  switch (type) {
#define ZORVAN_SIZE(name, code, type) \
  case ArrayType::name:               \
    return sizeof(type);
    ZORVAN_DENSE_TYPES(ZORVAN_SIZE)
#undef ZORVAN_SIZE
    default:
      return 0;
  }
}

}  // namespace foundation::zorvandata
