#include "single_element.h"

#include "array_object.h"
#include "number.h"

namespace ndarray {

namespace {

Ref elementOf(PyObject* self, const char* target) {
  const ArrayObject& array = *arrayIn(self);
  if (array.count() != 1) {
    raise(PyExc_TypeError, "only an array of one element converts to " + std::string(target) +
                               ", not one of size " + toText(array.extents));
  }
  return elementToPython(array.type, array.elements());
}

Ref realElementOf(PyObject* self, const char* target) {
  const ElementType type = arrayIn(self)->type;
  if (type.is_complex) {
    raise(PyExc_TypeError,
          "a complex " + type.className() + " does not convert to " + std::string(target));
  }
  return elementOf(self, target);
}

}  // namespace

PyObject* asInt(PyObject* self) noexcept {
  return guardedObject(
      [&] { return Ref::take(PyNumber_Long(realElementOf(self, "an int").get())); });
}

PyObject* asFloat(PyObject* self) noexcept {
  return guardedObject(
      [&] { return Ref::take(PyNumber_Float(realElementOf(self, "a float").get())); });
}

PyObject* asComplex(PyObject* self, PyObject*) noexcept {
  return guardedObject([&] {
    Ref element = elementOf(self, "a complex");
    if (PyComplex_Check(element.get())) return element;
    const Ref real = Ref::take(PyNumber_Float(element.get()));
    return Ref::take(PyComplex_FromDoubles(PyFloat_AsDouble(real.get()), 0.0));
  });
}

PyObject* asIndex(PyObject* self) noexcept {
  return guardedObject([&] { return realElementOf(self, "an index"); });
}

int asTruth(PyObject* self) noexcept {
  return guarded(-1, [&] {
    const ArrayObject& array = *arrayIn(self);
    if (array.count() != 1) {
      raise(PyExc_ValueError, "the truth value of an array of size " + toText(array.extents) +
                                  " is ambiguous: it does not have one element");
    }
    return static_cast<int>(isNonZero(loadElement(array.type, array.elements())));
  });
}

}  // namespace ndarray
