#include "array_object.h"

#include <array>
#include <new>

#include "array_methods.h"
#include "array_text.h"
#include "construction.h"
#include "indexing.h"
#include "pickling.h"
#include "single_element.h"

namespace ndarray {

namespace {

// One for each element class, in its order; never released.
std::array<PyTypeObject*, kClassCount> array_classes{};

void deallocate(PyObject* self) {
  PyTypeObject* type = Py_TYPE(self);
  ArrayObject* array = arrayIn(self);
  array->storage.~shared_ptr();
  array->strides.~Strides();
  array->extents.~Extents();
  PyObject_Free(self);
  Py_DECREF(type);
}

bool isRowMajor(const ArrayObject& array) {
  std::size_t long_axes = 0;
  for (Py_ssize_t extent : array.extents) long_axes += extent > 1;
  return long_axes <= 1 || array.count() == 0;
}

int exportBuffer(PyObject* self, Py_buffer* view, int flags) noexcept {
  ArrayObject* array = arrayIn(self);
  const auto asks = [flags](int flag) { return (flags & flag) == flag; };
  view->obj = nullptr;
  // Extents without strides mean row-major order.
  const bool wants_row_major = asks(PyBUF_C_CONTIGUOUS) || (asks(PyBUF_ND) && !asks(PyBUF_STRIDES));
  if (wants_row_major && !isRowMajor(*array)) {
    PyErr_SetString(PyExc_BufferError,
                    "the elements are in column-major order; a row-major buffer needs a copy");
    return -1;
  }
  view->buf = array->elements();
  view->len = static_cast<Py_ssize_t>(array->byteCount());
  view->itemsize = static_cast<Py_ssize_t>(array->type.size());
  view->readonly = 0;
  view->ndim = static_cast<int>(array->extents.size());
  view->format = asks(PyBUF_FORMAT) ? const_cast<char*>(array->type.format()) : nullptr;
  view->shape = asks(PyBUF_ND) ? array->extents.data() : nullptr;
  view->strides = asks(PyBUF_STRIDES) ? array->strides.data() : nullptr;
  view->suboffsets = nullptr;
  view->internal = nullptr;
  view->obj = Py_NewRef(self);
  return 0;
}

PyObject* getSize(PyObject* self, void*) noexcept {
  return guardedObject([&] { return toTuple(arrayIn(self)->extents); });
}

PyObject* getDimensionCount(PyObject* self, void*) noexcept {
  return PyLong_FromSize_t(arrayIn(self)->extents.size());
}

PyObject* getIsComplex(PyObject* self, void*) noexcept {
  return PyBool_FromLong(arrayIn(self)->type.is_complex);
}

PyGetSetDef properties[] = {
    {"size", getSize, nullptr, "The extents, a tuple of at least two ints.", nullptr},
    {"ndim", getDimensionCount, nullptr, "The number of dimensions, at least 2.", nullptr},
    {"_is_complex", getIsComplex, nullptr, "Whether the elements are complex numbers.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyMethodDef methods[] = {
    {"reshape", reshape, METH_VARARGS,
     "reshape($self, /, *size)\n--\n\n"
     "The same elements, in column-major order, under other extents. The result shares memory\n"
     "with this array. One extent may be -1 or None: it is worked out from the others."},
    {"tolist", toList, METH_NOARGS,
     "tolist($self, /)\n--\n\nThe elements as nested lists; x.tolist()[i][j] is x[i, j]."},
    {"copy", copyArray, METH_NOARGS, "copy($self, /)\n--\n\nAn array with memory of its own."},
    {"__copy__", copyArray, METH_NOARGS, "__copy__($self, /)\n--\n\nThe same as copy()."},
    {"__deepcopy__", deepCopyArray, METH_O,
     "__deepcopy__($self, memo, /)\n--\n\nThe same as copy()."},
    {"__complex__", asComplex, METH_NOARGS,
     "__complex__($self, /)\n--\n\nThe only element as a complex."},
    {"__reduce_ex__", reduceArray, METH_O,
     "__reduce_ex__($self, protocol, /)\n--\n\nSupports pickling; from protocol 5 on without a "
     "copy."},
    {"_from_memory", arrayFromMemory, METH_VARARGS | METH_CLASS,
     "_from_memory($type, size, is_complex, memory, /)\n--\n\n"
     "Rebuilds a pickled array from the bytes of its elements."},
    {nullptr, nullptr, 0, nullptr},
};

template <class Function>
void* slot(Function function) {
  return reinterpret_cast<void*>(function);
}

std::string classDocumentation(const std::string& name) {
  const bool is_logical = name == "logical";
  return name +
         (is_logical ? "([source], /, *, size=None)"
                     : "([source], /, *, size=None, is_complex=False)") +
         "\n\nColumn-major array of " + name + " elements with at least two dimensions.\n\n" +
         "source: a number, nested sequences of numbers, or any object that exports a buffer;\n"
         "one dimension of N elements becomes 1-by-N. Left out: zeros of the given size, 0-by-0\n"
         "without one. Values are converted only where they fit: OverflowError, ValueError or\n"
         "TypeError otherwise.\n"
         "size: the extents, a sequence of ints; the elements fill them in column-major order.\n" +
         (is_logical ? ""
                     : "is_complex: makes the elements complex even if the source is real.\n") +
         "\nAn index is an int, a slice, an Ellipsis or a tuple of them; indices left out mean\n"
         "everything. With one int for each dimension it gives the element, otherwise a copy in\n"
         "which a dimension indexed by an int has extent 1.";
}

Ref makeClass(ElementClass element_class) {
  const ElementType type{element_class, false};
  std::string documentation = classDocumentation(type.info().name);
  PyType_Slot slots[] = {
      {Py_tp_doc, documentation.data()},
      {Py_tp_new, slot(newArray)},
      {Py_tp_dealloc, slot(deallocate)},
      {Py_tp_repr, slot(represent)},
      {Py_tp_hash, slot(PyObject_HashNotImplemented)},
      {Py_tp_richcompare, slot(compareArrays)},
      {Py_tp_methods, methods},
      {Py_tp_getset, properties},
      {Py_mp_length, slot(firstExtent)},
      {Py_mp_subscript, slot(getItem)},
      {Py_mp_ass_subscript, slot(setItem)},
      {Py_sq_length, slot(firstExtent)},
      {Py_sq_item, slot(getRow)},
      {Py_sq_contains, slot(containsElement)},
      {Py_bf_getbuffer, slot(exportBuffer)},
      {Py_nb_int, slot(asInt)},
      {Py_nb_float, slot(asFloat)},
      {Py_nb_bool, slot(asTruth)},
      // Last, because an empty slot ends the list.
      isIntegerClass(element_class) ? PyType_Slot{Py_nb_index, slot(asIndex)} : PyType_Slot{},
      {0, nullptr},
  };
  // The name must outlive the class.
  static std::array<std::string, kClassCount> names;
  std::string& name = names[static_cast<std::size_t>(element_class)];
  name = type.className();
  PyType_Spec spec = {name.c_str(), sizeof(ArrayObject), 0,
                      Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE, slots};
  return Ref::take(PyType_FromSpec(&spec));
}

}  // namespace

void addArrayClasses(PyObject* module) {
  for (std::size_t i = 0; i < kClassCount; ++i) {
    const auto element_class = static_cast<ElementClass>(i);
    if (array_classes[i] == nullptr) {
      array_classes[i] = reinterpret_cast<PyTypeObject*>(makeClass(element_class).release());
    }
    auto* object = reinterpret_cast<PyObject*>(array_classes[i]);
    if (PyModule_AddObjectRef(module, classInfo(element_class).name, object) != 0) {
      throw PythonError{};
    }
  }
}

ElementClass elementClassOf(PyTypeObject* type) {
  std::size_t i = 0;
  while (array_classes[i] != type) ++i;
  return static_cast<ElementClass>(i);
}

ArrayObject* asArray(PyObject* object) {
  for (PyTypeObject* type : array_classes) {
    if (Py_TYPE(object) == type) return arrayIn(object);
  }
  return nullptr;
}

Ref makeArray(ElementType type, Extents extents, std::shared_ptr<Storage> storage) {
  padToTwoDimensions(extents);
  Strides strides = columnMajorStrides(extents, type.size());
  PyTypeObject* python_class = array_classes[static_cast<std::size_t>(type.element_class)];
  Ref array = Ref::take(reinterpret_cast<PyObject*>(PyObject_New(ArrayObject, python_class)));
  ArrayObject* object = arrayIn(array);
  object->type = type;
  new (&object->extents) Extents(std::move(extents));
  new (&object->strides) Strides(std::move(strides));
  new (&object->storage) std::shared_ptr<Storage>(std::move(storage));
  return array;
}

Ref makeArray(ElementType type, Extents extents) {
  const std::size_t byte_count = checkedByteCount(extents, type.size());
  return makeArray(type, std::move(extents), Storage::allocate(byte_count));
}

}  // namespace ndarray
