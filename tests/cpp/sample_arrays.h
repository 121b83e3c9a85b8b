// Arrays of every kind for the tests, and a description that tells any two different ones apart.
#pragma once

#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zorvandata/array.h"
#include "zorvandata/array_factory.h"

namespace sample {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayDimensions;
using foundation::zorvandata::ArrayType;

// Type, dimensions, names and every bit of every element, as text. Unlike ==, it tells NaN payloads
// and signed zeros apart.
std::string describe(const Array& array);

// A dense array whose elements have the given bytes.
template <class T>
Array dense(ArrayType type, const ArrayDimensions& dims, const std::vector<T>& values) {
  return foundation::zorvandata::ArrayFactory().createArrayWithData(type, dims, values.data(),
                                                                    values.size() * sizeof(T));
}

// A dense array whose elements all differ where the type allows it.
Array counting(ArrayType type, const ArrayDimensions& dims);

Array cell(const std::vector<Array>& elements);
// A string array; absent texts are missing strings.
Array strings(const ArrayDimensions& dims,
              const std::vector<std::optional<std::u16string>>& elements);
// A 1-by-1 struct.
Array record(const std::vector<std::pair<std::string, Array>>& fields);
// Cells within cells, `levels` of them, around a value.
Array nested(int levels, Array innermost);

// The message of an array as it is simplest to write: every item a message of its own, in
// `children` or as a child of a tape; every text spelled out.
enum class Form { kChildren, kTape };
std::string plainMessage(const Array& array, Form form);

struct Sample {
  std::string name;
  Array array;
};
// Every element type in every shape that has to survive a message.
std::vector<Sample> everyKind();

}  // namespace sample
