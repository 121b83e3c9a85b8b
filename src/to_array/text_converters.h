// str becomes a char row, or a string scalar where the options ask for one; and the ways in which
// other code reads the text of a Python object.
#pragma once

#include <string>

#include "to_array/convert_to_zorvan_data_array.h"

namespace PythonZorvanDataArray::detail {

class PyStrToCharOrString final : public ConvertToZorvanDataArray {
 public:
  // A str with a lone surrogate leaves the interpreter's UnicodeEncodeError set.
  std::optional<foundation::zorvandata::Array> convert(
      PyObject* obj, const std::optional<Options>& options) override;
  bool appendTo(foundation::zorvandata::ItemList& items, PyObject* obj,
                const std::optional<Options>& options) override;

  // The text as UTF-16 code units in native byte order; absent with a Python error set.
  std::optional<std::u16string> convertToUstring(PyObject* obj);
};

std::optional<std::u16string> convertPyStrToUstring(PyObject* obj);

// The ASCII part of the text; empty, with a Python error set, when there is none to be had.
std::string convertPyStrToString(PyObject* obj);

// The ASCII part of str(obj), asked for through its `__str__`. Empty when that fails, with the
// error of the call set.
std::string pyObjAsStdString(PyObject* obj);

}  // namespace PythonZorvanDataArray::detail
