// Factories of arrays. Stateless; each create function returns an array of its own and throws an
// Exception of exception.h when its arguments do not fit together.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "zorvandata/array.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/identifiers.h"
#include "zorvandata/text.h"
#include "zorvandata/typed_array.h"

namespace foundation::zorvandata {

using ArrayDimensions = std::vector<size_t>;

class ArrayFactory {
 public:
  // Zeros, false, U+0000, missing strings or 0-by-0 doubles in cells, by type; a struct without
  // fields; an all-zero sparse matrix. Throws EArrayUnknownDataType for codes without a default
  // element: unknown, object kinds and enumerations.
  Array createArray(ArrayType type, const ArrayDimensions& dims) const;

  // Elements of a dense type, copied from raw memory in linear (column-major) order; complex ones
  // as (real, imaginary) pairs, logical ones as one byte each, any nonzero byte true. Throws
  // InvalidDimensionsException when the byte count is not the dimensions' product times the element
  // size.
  Array createArrayWithData(ArrayType type, const ArrayDimensions& dims, const void* data,
                            size_t bytes) const;

  // 1-by-length. The 8-bit form throws NonAsciiCharInInputDataException.
  Array createCharArray(std::u16string_view text) const { return makeCharRow(text); }
  Array createCharArray(std::string_view ascii) const { return makeCharRow(widenAscii(ascii)); }
  Array createCharArray(const char* ascii) const {
    return createCharArray(std::string_view(ascii));
  }

  // Every element is a 0-by-0 double until set.
  Array createCellArray(const ArrayDimensions& dims) const {
    return createArray(ArrayType::CELL, dims);
  }
  // Elements in linear order; as many as the dimensions ask for.
  Array createCellArray(const ArrayDimensions& dims, const std::vector<Array>& elements) const;

  // Every field of every element is a 0-by-0 double until set. Throws InvalidFieldNameException
  // for an empty name and for one that stands twice.
  Array createStructArray(const ArrayDimensions& dims, std::vector<std::string> fields) const;

  // A 1-by-1 array of the value's type.
  template <class T>
  Array createScalar(const T& value) const {
    return makeScalar(ArrayTypeOf<T>::value, &value);
  }

  ClassInfo createClassInfo(const ZorvanClassIdentifier& id,
                            std::vector<ZorvanPropertyIdentifier> properties = {}) const {
    return ClassInfo(id, std::move(properties));
  }
  // Properties are 0-by-0 doubles until set.
  Array createValueObjectScalar(const ClassInfo& info) const {
    return createValueObjectArray({1, 1}, info, true);
  }
  Array createValueObjectScalar(const ZorvanClassIdentifier& id,
                                std::vector<ZorvanPropertyIdentifier> properties) const {
    return createValueObjectScalar(ClassInfo(id, std::move(properties)));
  }
  // With the flag false the elements have none of the class's properties until they are set.
  Array createValueObjectArray(const ArrayDimensions& dims, const ClassInfo& info,
                               bool withProperties) const;

  Array createHandleArray(const ArrayDimensions& dims, const ZorvanClassIdentifier& id,
                          const std::vector<uint64_t>& references) const;
  Array createEnumerationArray(const ArrayDimensions& dims, const ZorvanClassIdentifier& id,
                               const std::vector<std::string>& members) const;
  // Rows count from zero and ascend within a column; columnStarts has one entry more than there
  // are columns. `values` holds one element a row entry.
  Array createSparseArray(ArrayType type, size_t rowCount, size_t columnCount,
                          std::vector<size_t> rows, std::vector<size_t> columnStarts,
                          const Array& values) const;
};

// A 1-by-1 string array of UTF-8, UTF-16 or missing text.
template <>
Array ArrayFactory::createScalar(const std::string& utf8) const;
template <>
Array ArrayFactory::createScalar(const std::u16string& text) const;
template <>
Array ArrayFactory::createScalar(const std::optional<std::u16string>& text) const;

namespace standalone {

class ArrayFactory : public zorvandata::ArrayFactory {};
class ClientArrayFactory : public zorvandata::ArrayFactory {};

}  // namespace standalone
}  // namespace foundation::zorvandata
