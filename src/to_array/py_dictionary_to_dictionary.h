// Mappings other than a plain dict become the engine's dictionary: a value object of class
// "dictionary" with one property, "data", a 1-by-1 struct.
//
//   no items   Version, Unconfigured
//   items      Version, IsKeyCombined, IsValueCombined, Key, Value
//
// Key and Value are N-by-1, in the mapping's order. Strings, and doubles, of one Python type lie
// together in one array; everything else lies in a cell, one element an item. Of a single item they
// are the converted key and value themselves, in a cell only where they could not stand alone.
#pragma once

#include "to_array/convert_to_zorvan_data_array.h"

namespace PythonZorvanDataArray::detail {

// Keys and values are converted item by item: key, value, next key, next value, ... Fails as
// readMapping does, with the own error of the first key or value that cannot be converted, with
// ValueError for keys that are the same key to the engine and for a single key of one element
// whose value has several.
class PyDictionaryToDictionary final : public ConvertToZorvanDataArray {
 public:
  void append(Encoder& to, PyObject* obj, const Options& options) const override;
};

}  // namespace PythonZorvanDataArray::detail
