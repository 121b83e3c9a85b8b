// The instances of the eleven array classes.
//
// An instance shows column-major elements of one type, at least two-dimensional, in shared storage.
// Type, extents and storage never change after it was made; the elements may be written through
// item assignment and exported buffers. Functions that fail set a Python exception and throw.
// Everything needs the interpreter lock.
#pragma once

#include <memory>

#include "element_types.h"
#include "python_api.h"
#include "shape.h"
#include "storage.h"

namespace ndarray {

struct ArrayObject {
  PyObject_HEAD;
  ElementType type;
  Extents extents;
  Strides strides;
  std::shared_ptr<Storage> storage;

  char* elements() const { return storage->elements(); }
  std::size_t count() const { return elementCount(extents); }
  std::size_t byteCount() const { return count() * type.size(); }
};

// Makes the class of each element class and adds it to the module under its name.
void addArrayClasses(PyObject* module);

// The element class whose Python class this is. The classes must have been made, and the type be
// one of them.
ElementClass elementClassOf(PyTypeObject* type);

// Null when the object is no array. Does not touch references, sets no exception.
ArrayObject* asArray(PyObject* object);

// A new array on the storage; pads the extents to two dimensions. The storage holds at least
// checkedByteCount(extents, type.size()) bytes, which the caller has checked.
Ref makeArray(ElementType type, Extents extents, std::shared_ptr<Storage> storage);

// A new array with storage of its own, uninitialized; checks the extents.
Ref makeArray(ElementType type, Extents extents);

inline ArrayObject* arrayIn(const Ref& ref) { return reinterpret_cast<ArrayObject*>(ref.get()); }
inline ArrayObject* arrayIn(PyObject* self) { return reinterpret_cast<ArrayObject*>(self); }

}  // namespace ndarray
