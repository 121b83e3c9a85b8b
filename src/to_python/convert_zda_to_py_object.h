// Base of all converters from data arrays to Python objects.
//
// The instances in the factory's maps are shared by all conversions and keep no state of a call.
// Conversions run with the interpreter lock held. They return a new reference, or NULL with a
// Python error set; C++ exceptions of the data-array library may pass through them too.
#pragma once

#include "util/python_api.h"
#include "zorvandata/array_factory.h"
#include "zorvandata/item_list.h"

namespace PythonZorvanDataArray::detail {

class ConvertZDAToPyObject {
 public:
  ConvertZDAToPyObject() = default;
  ConvertZDAToPyObject(const ConvertZDAToPyObject&) = delete;
  ConvertZDAToPyObject& operator=(const ConvertZDAToPyObject&) = delete;

  virtual PyObject* convert(const foundation::zorvandata::Array& array) const = 0;
  virtual ~ConvertZDAToPyObject() = default;

  // What convert(items.get(i)) gives. Converters of small values override it, so that an element
  // of a container need not become an array first.
  virtual PyObject* convertItem(const foundation::zorvandata::ItemList& items, size_t i) const {
    return convert(items.get(i));
  }

  // For arrays that a conversion makes on its way.
  const foundation::zorvandata::standalone::ClientArrayFactory& getFactory() const {
    return factory_;
  }

 private:
  foundation::zorvandata::standalone::ClientArrayFactory factory_;
};

}  // namespace PythonZorvanDataArray::detail
