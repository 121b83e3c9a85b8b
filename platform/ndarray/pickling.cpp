#include "pickling.h"

#include <cstring>

#include "array_object.h"
#include "construction.h"
#include "strided_copy.h"

#if __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "pickled elements are little-endian; this machine would have to swap their bytes"
#endif

namespace ndarray {

namespace {

Ref elementsForPickle(PyObject* self, long protocol) {
  if (protocol < 5) {
    const ArrayObject& array = *arrayIn(self);
    const auto byte_count = static_cast<Py_ssize_t>(array.byteCount());
    return Ref::take(PyBytes_FromStringAndSize(array.elements(), byte_count));
  }
  const Ref pickle = Ref::take(PyImport_ImportModule("pickle"));
  const Ref buffer_class = Ref::take(PyObject_GetAttrString(pickle.get(), "PickleBuffer"));
  return Ref::take(PyObject_CallFunctionObjArgs(buffer_class.get(), self, nullptr));
}

// Memory that arrived from elsewhere, for the time of a call.
class Memory {
 public:
  explicit Memory(PyObject* exporter) {
    if (PyObject_GetBuffer(exporter, &view_, PyBUF_SIMPLE) != 0) throw PythonError{};
  }
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;
  ~Memory() { PyBuffer_Release(&view_); }

  const char* bytes() const { return static_cast<const char*>(view_.buf); }
  Py_ssize_t size() const { return view_.len; }

 private:
  Py_buffer view_{};
};

}  // namespace

PyObject* reduceArray(PyObject* self, PyObject* protocol) noexcept {
  return guardedObject([&] {
    const long version = PyLong_AsLong(protocol);
    if (version == -1 && PyErr_Occurred() != nullptr) throw PythonError{};
    auto* type = reinterpret_cast<PyObject*>(Py_TYPE(self));
    const Ref rebuild = Ref::take(PyObject_GetAttrString(type, "_from_memory"));
    const Ref size = toTuple(arrayIn(self)->extents);
    const Ref memory = elementsForPickle(self, version);
    PyObject* is_complex = arrayIn(self)->type.is_complex ? Py_True : Py_False;
    return Ref::take(Py_BuildValue("O(OOO)", rebuild.get(), size.get(), is_complex, memory.get()));
  });
}

PyObject* arrayFromMemory(PyObject* type, PyObject* args) noexcept {
  return guardedObject([&] {
    PyObject* size = nullptr;
    PyObject* exporter = nullptr;
    int is_complex = 0;
    if (!PyArg_ParseTuple(args, "OpO", &size, &is_complex, &exporter)) throw PythonError{};
    const ElementClass element_class = elementClassOf(reinterpret_cast<PyTypeObject*>(type));
    const bool is_logical = element_class == ElementClass::kLogical;
    const ElementType element_type{element_class, is_complex != 0 && !is_logical};
    const Extents extents = extentsFromPython(size);
    const std::size_t byte_count = checkedByteCount(extents, element_type.size());
    const Memory memory(exporter);
    if (static_cast<std::size_t>(memory.size()) != byte_count) {
      raise(PyExc_ValueError, "a " + element_type.className() + " of size " + toText(extents) +
                                  " has " + std::to_string(byte_count) + " bytes, not " +
                                  std::to_string(memory.size()));
    }
    Ref array = makeArray(element_type, extents);
    const std::ptrdiff_t length = memory.size();
    const std::ptrdiff_t stride = 1;
    const auto copy = copyFunction(
        is_logical ? ElementConversion::kNormalizeBool : ElementConversion::kNone, 1, 1);
    copy({memory.bytes(), 1, &length, &stride}, arrayIn(array)->elements());
    return array;
  });
}

}  // namespace ndarray
