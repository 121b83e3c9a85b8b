#include "construction.h"

#include <cstring>
#include <optional>

#include "buffer_source.h"
#include "nested_sequence.h"
#include "number.h"

namespace ndarray {

namespace {

void requireNumbersIfComplex(ElementType type) {
  if (type.is_complex && type.element_class == ElementClass::kLogical) {
    raise(PyExc_TypeError, "the elements of a zorvan.logical cannot be complex");
  }
}

Ref fromBuffer(PyObject* exporter, ElementType type) {
  const BufferSource source(exporter);
  type.is_complex |= source.type().is_complex;
  requireNumbersIfComplex(type);
  Ref array = makeArray(type, source.extents());
  if (source.type() == type) {
    source.copyTo(arrayIn(array)->elements());
    return array;
  }
  const auto copy = Storage::allocate(source.byteCount());
  source.copyTo(copy->elements());
  convertElements(source.type(), copy->elements(), type, arrayIn(array)->elements(),
                  arrayIn(array)->count());
  return array;
}

// Numbers of a nested sequence lie in row-major order.
Ref fromNumbers(const NestedNumbers& source, ElementType type) {
  type.is_complex |= source.any_complex;
  requireNumbersIfComplex(type);
  const std::size_t byte_count = checkedByteCount(source.extents, type.size());
  const auto row_major = Storage::allocate(byte_count);
  char* element = row_major->elements();
  for (const Number& number : source.numbers) {
    storeElement(type, number, element);
    element += type.size();
  }
  if (source.extents.size() < 2) return makeArray(type, source.extents, row_major);
  Ref array = makeArray(type, source.extents);
  const Strides strides = rowMajorStrides(source.extents, type.size());
  const std::size_t component_size = type.info().component_size;
  const auto copy = copyFunction(ElementConversion::kNone, component_size, type.componentCount());
  copy({row_major->elements(), strides.size(), source.extents.data(), strides.data()},
       arrayIn(array)->elements());
  return array;
}

Ref zeros(ElementType type, const Extents& extents) {
  Ref array = makeArray(type, extents);
  std::memset(arrayIn(array)->elements(), 0, arrayIn(array)->byteCount());
  return array;
}

Ref fromSource(PyObject* source, ElementType type) {
  if (PyObject_CheckBuffer(source)) return fromBuffer(source, type);
  return fromNumbers(readNestedNumbers(source, type.element_class), type);
}

Ref construct(ElementType type, PyObject* source, const std::optional<Extents>& size) {
  if (source == nullptr) return zeros(type, size.value_or(Extents{0, 0}));
  Ref array = fromSource(source, type);
  if (!size) return array;
  const ArrayObject* made = arrayIn(array);
  if (checkedByteCount(*size, made->type.size()) != made->byteCount()) {
    raise(PyExc_ValueError, std::to_string(made->count()) +
                                " elements do not fill an array of size " + toText(*size));
  }
  return makeArray(made->type, *size, made->storage);
}

struct Arguments {
  PyObject* source = nullptr;  // borrowed from the call; null when left out
  std::optional<Extents> size;
  bool is_complex = false;
};

Arguments parseArguments(PyObject* args, PyObject* kwargs) {
  static const char* names[] = {"", "size", "is_complex", nullptr};
  Arguments arguments;
  PyObject* size = Py_None;
  int is_complex = 0;
  if (!PyArg_ParseTupleAndKeywords(args, kwargs, "|O$Op", const_cast<char**>(names),
                                   &arguments.source, &size, &is_complex)) {
    throw PythonError{};
  }
  if (size != Py_None) arguments.size = extentsFromPython(size);
  arguments.is_complex = is_complex != 0;
  return arguments;
}

}  // namespace

Extents extentsFromPython(PyObject* sequence) {
  if (PySequence_Check(sequence) == 0) {
    raise(PyExc_TypeError, "a size is a sequence of ints, not '" + typeNameOf(sequence) + "'");
  }
  const Ref items = Ref::take(PySequence_Tuple(sequence));
  Extents extents(static_cast<std::size_t>(PyTuple_Size(items.get())));
  for (std::size_t i = 0; i < extents.size(); ++i) {
    PyObject* item = PyTuple_GetItem(items.get(), static_cast<Py_ssize_t>(i));
    extents[i] = PyNumber_AsSsize_t(item, PyExc_OverflowError);
    if (extents[i] == -1 && PyErr_Occurred() != nullptr) throw PythonError{};
  }
  return extents;
}

PyObject* newArray(PyTypeObject* type, PyObject* args, PyObject* kwargs) noexcept {
  return guardedObject([&] {
    const Arguments arguments = parseArguments(args, kwargs);
    const ElementType element_type{elementClassOf(type), arguments.is_complex};
    requireNumbersIfComplex(element_type);
    return construct(element_type, arguments.source, arguments.size);
  });
}

}  // namespace ndarray
