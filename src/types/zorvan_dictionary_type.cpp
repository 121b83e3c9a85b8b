#include "types/zorvan_dictionary_type.h"

#include "types/zorvan_dictionary_methods.h"
#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

PyTypeObject* zorvanDictionaryType = nullptr;

namespace {

using PythonUtil::PyObjectWithGuard;

struct Instance {
  PyObject_HEAD PyObject* contents;
};

PyObject*& contentsOf(PyObject* self) { return reinterpret_cast<Instance*>(self)->contents; }

int dictionary_traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(Py_TYPE(self));
  Py_VISIT(contentsOf(self));
  return 0;
}

int dictionary_clear(PyObject* self) {
  Py_CLEAR(contentsOf(self));
  return 0;
}

void dictionary_dealloc(PyObject* self) {
  PyTypeObject* type = Py_TYPE(self);
  PyObject_GC_UnTrack(self);
  dictionary_clear(self);
  reinterpret_cast<freefunc>(PyType_GetSlot(type, Py_tp_free))(self);
  Py_DECREF(type);
}

// Like dict's, repeated construction adds to what is there.
int dictionary_init(PyObject* self, PyObject* args, PyObject* kwds) {
  if (!contentsOf(self)) contentsOf(self) = PyDict_New();
  return contentsOf(self) ? fillZorvanDictionary(contentsOf(self), args, kwds) : -1;
}

// So that isinstance knows instances for mappings, and match statements too, for which the type
// must not be immutable.
bool registerAsMutableMapping(PyObject* type) {
  const auto abc = PyObjectWithGuard::owned(PyImport_ImportModule("_collections_abc"));
  if (!abc) return false;
  const auto mapping =
      PyObjectWithGuard::owned(PyObject_GetAttrString(abc.get(), "MutableMapping"));
  if (!mapping) return false;
  const auto registered =
      PyObjectWithGuard::owned(PyObject_CallMethod(mapping.get(), "register", "O", type));
  return static_cast<bool>(registered);
}

}  // namespace

PyObject* makeZorvanDictionaryType() noexcept {
  static char doc[] =
      "dictionary(**items)\n"
      "dictionary(mapping, **items)\n"
      "dictionary(pairs, **items)\n\n"
      "A ZORVAN dictionary: a mapping that keeps its items in insertion order.\n\n"
      "It compares with others of its type only.";
  static PyType_Slot slots[] = {
      {Py_tp_doc, doc},
      {Py_tp_new, reinterpret_cast<void*>(PyType_GenericNew)},
      {Py_tp_init, reinterpret_cast<void*>(dictionary_init)},
      {Py_tp_dealloc, reinterpret_cast<void*>(dictionary_dealloc)},
      {Py_tp_traverse, reinterpret_cast<void*>(dictionary_traverse)},
      {Py_tp_clear, reinterpret_cast<void*>(dictionary_clear)},
      {Py_tp_repr, reinterpret_cast<void*>(zorvanDictionary_repr)},
      {Py_tp_hash, reinterpret_cast<void*>(PyObject_HashNotImplemented)},
      {Py_tp_richcompare, reinterpret_cast<void*>(zorvanDictionary_compare)},
      {Py_tp_iter, reinterpret_cast<void*>(zorvanDictionary_iter)},
      {Py_tp_methods, zorvanDictionaryMethods()},
      {Py_mp_length, reinterpret_cast<void*>(zorvanDictionary_length)},
      {Py_mp_subscript, reinterpret_cast<void*>(zorvanDictionary_getItem)},
      {Py_mp_ass_subscript, reinterpret_cast<void*>(zorvanDictionary_setItem)},
      {Py_sq_contains, reinterpret_cast<void*>(zorvanDictionary_contains)},
      {Py_nb_or, reinterpret_cast<void*>(zorvanDictionary_or)},
      {Py_nb_inplace_or, reinterpret_cast<void*>(zorvanDictionary_inPlaceOr)},
      {0, nullptr}};
  static PyType_Spec spec = {"zorvan.dictionary", sizeof(Instance), 0,
                             Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC, slots};
  auto type = PyObjectWithGuard::owned(PyType_FromSpec(&spec));
  return type && registerAsMutableMapping(type.get()) ? type.release() : nullptr;
}

bool isZorvanDictionary(PyObject* object) noexcept {
  return Py_IS_TYPE(object, zorvanDictionaryType);
}

PyObject* zorvanDictionary_new_with_contents(PyObject* dict) noexcept {
  PyObject* self = PyType_GenericNew(zorvanDictionaryType, nullptr, nullptr);
  if (self) contentsOf(self) = Py_NewRef(dict);
  return self;
}

PyObject* zorvanDictionary_contents(PyObject* object) noexcept { return contentsOf(object); }

}  // namespace PythonZorvanDataArray::detail
