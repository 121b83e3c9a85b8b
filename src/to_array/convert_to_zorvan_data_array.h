// The interface of every converter from a Python object to a data array.
//
// Converters are stateless, shared, and called with the interpreter lock held. On success no
// Python error is pending (the one exception is stated where it is made); on failure the result is
// empty and a Python error is set. They may throw exceptions of the data-array library and
// std::bad_alloc, which whoever the interpreter called turns into Python errors.
#pragma once

#include <optional>

#include "util/python_api.h"
#include "zorvandata/array_factory.h"
#include "zorvandata/item_list.h"

namespace PythonZorvanDataArray::detail {

class ConvertToZorvanDataArray {
 public:
  // How the caller wants values converted; absent options mean both flags false.
  class Options {
   public:
    // A str becomes a string array instead of a char row.
    bool getConvertPyStrToString() const { return convertPyStrToString_; }
    void setConvertPyStrToString(bool on) { convertPyStrToString_ = on; }
    // The value is a column or cell of a table.
    bool getIfOriginatedFromTable() const { return originatedFromTable_; }
    void setOriginatedFromTable() { originatedFromTable_ = true; }

   private:
    bool convertPyStrToString_ = false;
    bool originatedFromTable_ = false;
  };

  ConvertToZorvanDataArray() = default;
  ConvertToZorvanDataArray(const ConvertToZorvanDataArray&) = delete;
  ConvertToZorvanDataArray& operator=(const ConvertToZorvanDataArray&) = delete;
  virtual ~ConvertToZorvanDataArray() = default;

  // A NULL object gives an empty result and sets no error. This implementation always does.
  virtual std::optional<foundation::zorvandata::Array> convert(
      PyObject* obj, const std::optional<Options>& options);

  // Converts an object straight into the next element of a container; false on failure. Converters
  // of values that containers hold inline override it, so that no array is made for each element.
  virtual bool appendTo(foundation::zorvandata::ItemList& items, PyObject* obj,
                        const std::optional<Options>& options);

 protected:
  foundation::zorvandata::standalone::ArrayFactory& getFactory() { return factory_; }

 private:
  foundation::zorvandata::standalone::ArrayFactory factory_;
};

}  // namespace PythonZorvanDataArray::detail
