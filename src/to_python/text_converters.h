// Converters of char and string arrays to str. Text that has a lone surrogate is an error, the
// UnicodeDecodeError of Python's strict UTF-16 decoder.
#pragma once

#include <string_view>

#include "to_python/convert_zda_to_py_object.h"

namespace PythonZorvanDataArray::detail {

// New reference to the str that stored text is; NULL with a Python error set.
PyObject* makeText(std::string_view utf8);

// A vector of characters becomes one str.
class CharToPyStr : public ConvertZDAToPyObject {
 public:
  PyObject* convert(const foundation::zorvandata::Array& array) const override;
  PyObject* convertItem(const foundation::zorvandata::ItemList& items, size_t i) const override;
};

// One string of a string array becomes a str, a missing one None.
class ZVStringToPyStr : public ConvertZDAToPyObject {
 public:
  PyObject* convert(const foundation::zorvandata::Array& array) const override;
  PyObject* convertItem(const foundation::zorvandata::ItemList& items, size_t i) const override;

  // Position of the string that convert takes, at first 0; only for instances of one's own.
  void setIndex(size_t index) { index_ = index; }

 private:
  size_t index_ = 0;
};

// A vector of strings becomes a list of what ZVStringToPyStr makes of each.
class ZVStringToPyList : public ConvertZDAToPyObject {
 public:
  PyObject* convert(const foundation::zorvandata::Array& array) const override;
};

}  // namespace PythonZorvanDataArray::detail
