#include "types/zorvan_dictionary_iterator.h"

#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

PyTypeObject* zorvanDictionaryIter_Type = nullptr;

namespace {

using PythonUtil::PyObjectWithGuard;

struct Instance {
  PyObject_HEAD PyObject* keys;
};

// The dict's own iterator, which does the work.
PyObject*& keysOf(PyObject* self) { return reinterpret_cast<Instance*>(self)->keys; }

// Needs no counterpart that clears: the dict breaks every cycle through it.
int iterator_traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(Py_TYPE(self));
  Py_VISIT(keysOf(self));
  return 0;
}

void iterator_dealloc(PyObject* self) {
  PyTypeObject* type = Py_TYPE(self);
  PyObject_GC_UnTrack(self);
  Py_CLEAR(keysOf(self));
  reinterpret_cast<freefunc>(PyType_GetSlot(type, Py_tp_free))(self);
  Py_DECREF(type);
}

PyObject* iterator_next(PyObject* self) { return PyIter_Next(keysOf(self)); }

PyObject* iterator_lengthHint(PyObject* self, PyObject*) {
  return PyObject_CallMethod(keysOf(self), "__length_hint__", nullptr);
}

PyObject* iterator_reduce(PyObject* self, PyObject*) {
  return PyObject_CallMethod(keysOf(self), "__reduce__", nullptr);
}

}  // namespace

PyObject* makeZorvanDictionaryIterType() noexcept {
  static PyMethodDef methods[] = {
      {"__length_hint__", iterator_lengthHint, METH_NOARGS, "The number of keys to come."},
      {"__reduce__", iterator_reduce, METH_NOARGS, "An iterator over a list of the keys to come."},
      {nullptr, nullptr, 0, nullptr}};
  static PyType_Slot slots[] = {{Py_tp_dealloc, reinterpret_cast<void*>(iterator_dealloc)},
                                {Py_tp_traverse, reinterpret_cast<void*>(iterator_traverse)},
                                {Py_tp_iter, reinterpret_cast<void*>(PyObject_SelfIter)},
                                {Py_tp_iternext, reinterpret_cast<void*>(iterator_next)},
                                {Py_tp_methods, methods},
                                {0, nullptr}};
  static PyType_Spec spec = {"zorvan.dictionary_iter", sizeof(Instance), 0,
                             Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC |
                                 Py_TPFLAGS_DISALLOW_INSTANTIATION | Py_TPFLAGS_IMMUTABLETYPE,
                             slots};
  return PyType_FromSpec(&spec);
}

PyObject* zorvanDictionaryIter_new(PyObject* dict) noexcept {
  auto keys = PyObjectWithGuard::owned(PyObject_GetIter(dict));
  if (!keys) return nullptr;
  PyObject* self = PyType_GenericNew(zorvanDictionaryIter_Type, nullptr, nullptr);
  if (self) keysOf(self) = keys.release();
  return self;
}

}  // namespace PythonZorvanDataArray::detail
