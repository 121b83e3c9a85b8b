#include "array_methods.h"

#include <cstring>
#include <type_traits>

#include "array_object.h"
#include "construction.h"
#include "number.h"

namespace ndarray {

namespace {

bool haveEqualElements(const ArrayObject& a, const ArrayObject& b) {
  const std::size_t count = a.count() * a.type.componentCount();
  return dispatch(a.type.element_class, [&](auto component) {
    using T = typename decltype(component)::Type;
    for (std::size_t i = 0; i < count; ++i) {
      T left;
      T right;
      std::memcpy(&left, a.elements() + i * sizeof(T), sizeof(T));
      std::memcpy(&right, b.elements() + i * sizeof(T), sizeof(T));
      if constexpr (std::is_same_v<T, Logical>) {
        if (left.value != right.value) return false;
      } else {
        if (left != right) return false;
      }
    }
    return true;
  });
}

Ref listFrom(const ArrayObject& array, std::size_t dimension, const char* base) {
  if (dimension == array.extents.size()) return elementToPython(array.type, base);
  const Py_ssize_t extent = array.extents[dimension];
  Ref list = Ref::take(PyList_New(extent));
  for (Py_ssize_t i = 0; i < extent; ++i) {
    Ref item = listFrom(array, dimension + 1, base + i * array.strides[dimension]);
    PyList_SetItem(list.get(), i, item.release());
  }
  return list;
}

// reshape(2, 3) and reshape((2, 3)) mean the same. The place that is to be worked out is -1.
Extents requestedExtents(PyObject* args) {
  const bool is_wrapped =
      PyTuple_Size(args) == 1 && PySequence_Check(PyTuple_GetItem(args, 0)) != 0;
  const Ref sizes = Ref::take(PySequence_List(is_wrapped ? PyTuple_GetItem(args, 0) : args));
  for (Py_ssize_t i = 0; i < PyList_Size(sizes.get()); ++i) {
    if (PyList_GetItem(sizes.get(), i) != Py_None) continue;
    PyList_SetItem(sizes.get(), i, Ref::take(PyLong_FromLong(-1)).release());
  }
  return extentsFromPython(sizes.get());
}

[[noreturn]] void raiseDoesNotFit(const ArrayObject& array, const Extents& extents) {
  raise(PyExc_ValueError,
        "cannot reshape an array of size " + toText(array.extents) + " to " + toText(extents));
}

Extents resolved(const ArrayObject& array, const Extents& requested) {
  Extents extents = requested;
  Py_ssize_t* open = nullptr;
  for (Py_ssize_t& extent : extents) {
    if (extent != -1) continue;
    if (open != nullptr) raise(PyExc_ValueError, "only one extent can be left open");
    open = &extent;
  }
  if (open != nullptr) {
    *open = 1;
    const std::size_t known = checkedByteCount(extents, array.type.size());
    if (known == 0) raiseDoesNotFit(array, requested);
    *open = static_cast<Py_ssize_t>(array.byteCount() / known);
  }
  if (checkedByteCount(extents, array.type.size()) != array.byteCount()) {
    raiseDoesNotFit(array, requested);
  }
  return extents;
}

}  // namespace

PyObject* reshape(PyObject* self, PyObject* args) noexcept {
  return guardedObject([&] {
    const ArrayObject& array = *arrayIn(self);
    return makeArray(array.type, resolved(array, requestedExtents(args)), array.storage);
  });
}

PyObject* toList(PyObject* self, PyObject*) noexcept {
  return guardedObject([&] {
    const ArrayObject& array = *arrayIn(self);
    return listFrom(array, 0, array.elements());
  });
}

PyObject* copyArray(PyObject* self, PyObject*) noexcept {
  return guardedObject([&] {
    const ArrayObject& array = *arrayIn(self);
    Ref copy = makeArray(array.type, array.extents);
    std::memcpy(arrayIn(copy)->elements(), array.elements(), array.byteCount());
    return copy;
  });
}

PyObject* deepCopyArray(PyObject* self, PyObject*) noexcept { return copyArray(self, nullptr); }

PyObject* compareArrays(PyObject* self, PyObject* other, int operation) noexcept {
  const ArrayObject* a = arrayIn(self);
  const ArrayObject* b = asArray(other);
  if (b == nullptr || (operation != Py_EQ && operation != Py_NE)) {
    return Py_NewRef(Py_NotImplemented);
  }
  const bool equal = a->type == b->type && a->extents == b->extents && haveEqualElements(*a, *b);
  return PyBool_FromLong(equal == (operation == Py_EQ));
}

int containsElement(PyObject* self, PyObject* value) noexcept {
  return guarded(-1, [&] {
    const ArrayObject& array = *arrayIn(self);
    for (std::size_t i = 0; i < array.count(); ++i) {
      const Ref element = elementToPython(array.type, array.elements() + i * array.type.size());
      const int equal = PyObject_RichCompareBool(element.get(), value, Py_EQ);
      if (equal != 0) return equal;
    }
    return 0;
  });
}

}  // namespace ndarray
