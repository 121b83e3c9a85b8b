#include "types/zorvan_dictionary_methods.h"

#include "types/guarded_slot.h"
#include "types/type_compare.h"
#include "types/zorvan_dictionary_iterator.h"
#include "types/zorvan_dictionary_type.h"
#include "util/message_catalogue.h"
#include "util/py_object_guard.h"
#include "util/type_names.h"

namespace PythonZorvanDataArray::detail {

namespace {

using PythonUtil::PyObjectWithGuard;

// The dict inside, held while Python code may run; empty with IndexError set when there is none.
PyObjectWithGuard heldContents(PyObject* self) noexcept {
  return guardedSlot(PyObjectWithGuard(), [self] {
    auto contents = PyObjectWithGuard::newReference(zorvanDictionary_contents(self));
    if (!contents) setPythonErrorStr(PyExc_IndexError, formatMessage(UninitializedDictionary));
    return contents;
  });
}

// Whether dict would try to read it: through `keys` and item access, or as an iterable of pairs.
bool isReadable(PyObject* source) noexcept {
  return PyMapping_Check(source) || PySequence_Check(source) ||
         PyType_GetSlot(Py_TYPE(source), Py_tp_iter);
}

PyObject* refuseSource(PyObject* source) noexcept {
  return guardedSlot<PyObject*>(nullptr, [source] {
    setPythonErrorStr(PyExc_TypeError, formatMessage(TypeNotConvertibleToZORVANDotDictionary,
                                                     getUnqualifiedName(source)));
    return nullptr;
  });
}

// The name is interned because the interpreter's cache of look-ups keeps every text it is asked
// for.
PyObjectWithGuard attributeOf(PyObject* object, const char* name) noexcept {
  const auto text = PyObjectWithGuard::owned(PyUnicode_InternFromString(name));
  return PyObjectWithGuard::owned(text ? PyObject_GetAttr(object, text.get()) : nullptr);
}

PyObject* callByName(PyObject* object, const char* name, PyObject* args, PyObject* kwds) noexcept {
  const PyObjectWithGuard method = attributeOf(object, name);
  return method ? PyObject_Call(method.get(), args, kwds) : nullptr;
}

// The method of the dict inside by this name, with the same arguments.
template <const char* name>
PyObject* callOnContents(PyObject* self, PyObject* args, PyObject* kwds) noexcept {
  const PyObjectWithGuard contents = heldContents(self);
  return contents ? callByName(contents.get(), name, args, kwds) : nullptr;
}

template <const char* name>
PyMethodDef methodOfContents(const char* doc) noexcept {
  const auto function = reinterpret_cast<void (*)()>(callOnContents<name>);
  return {name, reinterpret_cast<PyCFunction>(function), METH_VARARGS | METH_KEYWORDS, doc};
}

constexpr char kClear[] = "clear";
constexpr char kGet[] = "get";
constexpr char kItems[] = "items";
constexpr char kKeys[] = "keys";
constexpr char kPop[] = "pop";
constexpr char kPopitem[] = "popitem";
constexpr char kReversed[] = "__reversed__";
constexpr char kSetdefault[] = "setdefault";
constexpr char kUpdate[] = "update";
constexpr char kValues[] = "values";

PyObject* dictionary_copy(PyObject* self, PyObject*) {
  const PyObjectWithGuard contents = heldContents(self);
  if (!contents) return nullptr;
  const auto copy = PyObjectWithGuard::owned(PyDict_Copy(contents.get()));
  return copy ? zorvanDictionary_new_with_contents(copy.get()) : nullptr;
}

PyObject* dictionary_fromkeys(PyObject*, PyObject* args) {
  PyObject* dictType = reinterpret_cast<PyObject*>(&PyDict_Type);
  const auto dict = PyObjectWithGuard::owned(callByName(dictType, "fromkeys", args, nullptr));
  return dict ? zorvanDictionary_new_with_contents(dict.get()) : nullptr;
}

// Items are set one by one on an instance that exists already, so that it may contain itself.
PyObject* dictionary_reduce(PyObject* self, PyObject*) {
  const PyObjectWithGuard contents = heldContents(self);
  if (!contents) return nullptr;
  const auto items = PyObjectWithGuard::owned(PyDict_Items(contents.get()));
  if (!items) return nullptr;
  PyObject* iterator = PyObject_GetIter(items.get());
  return iterator ? Py_BuildValue("O()OON", Py_TYPE(self), Py_None, Py_None, iterator) : nullptr;
}

bool dictionariesAreEqual(PyObject* a, PyObject* b) {
  const PyObjectWithGuard left = heldContents(a);
  const PyObjectWithGuard right = left ? heldContents(b) : PyObjectWithGuard();
  const int equal = right ? PyObject_RichCompareBool(left.get(), right.get(), Py_EQ) : -1;
  if (equal < 0) throw PythonUtil::PythonErrorSet();
  return equal != 0;
}

// Lists have item access too, but only mappings have keys.
bool isMapping(PyObject* object) noexcept {
  if (!PyMapping_Check(object)) return false;
  const PyObjectWithGuard keys = attributeOf(object, kKeys);
  if (!keys) PyErr_Clear();
  return static_cast<bool>(keys);
}

// Py_ReprEnter for a scope; what it says is to be looked at before the representation is built.
class ReprScope {
 public:
  explicit ReprScope(PyObject* object) : object_(object), entered_(Py_ReprEnter(object)) {}
  ~ReprScope() {
    if (entered_ == 0) Py_ReprLeave(object_);
  }
  ReprScope(const ReprScope&) = delete;
  ReprScope& operator=(const ReprScope&) = delete;

  bool failed() const { return entered_ < 0; }
  bool isWithinItself() const { return entered_ > 0; }

 private:
  PyObject* object_;
  int entered_;
};

}  // namespace

int fillZorvanDictionary(PyObject* dict, PyObject* args, PyObject* kwds) noexcept {
  const auto held = PyObjectWithGuard::newReference(dict);
  PyObject* source = nullptr;
  if (!PyArg_UnpackTuple(args, "zorvan.dictionary", 0, 1, &source)) return -1;
  const bool readable = !source || isReadable(source);
  const auto done = PyObjectWithGuard::owned(readable ? callByName(dict, kUpdate, args, kwds)
                                                      : refuseSource(source));
  return done ? 0 : -1;
}

PyObject* zorvanDictionary_repr(PyObject* self) noexcept {
  const PyObjectWithGuard contents = heldContents(self);
  if (!contents) return nullptr;
  const ReprScope scope(self);
  if (scope.failed()) return nullptr;
  if (scope.isWithinItself()) return PyUnicode_FromString("zorvan.dictionary({...})");
  return PyUnicode_FromFormat("zorvan.dictionary(%R)", contents.get());
}

PyObject* zorvanDictionary_compare(PyObject* self, PyObject* other, int operation) noexcept {
  return guardedSlot<PyObject*>(nullptr, [&] {
    return type_compare(self, other, operation, isZorvanDictionary, dictionariesAreEqual,
                        "zorvan.dictionary");
  });
}

PyObject* zorvanDictionary_iter(PyObject* self) noexcept {
  const PyObjectWithGuard contents = heldContents(self);
  return contents ? zorvanDictionaryIter_new(contents.get()) : nullptr;
}

Py_ssize_t zorvanDictionary_length(PyObject* self) noexcept {
  const PyObjectWithGuard contents = heldContents(self);
  return contents ? PyDict_Size(contents.get()) : -1;
}

PyObject* zorvanDictionary_getItem(PyObject* self, PyObject* key) noexcept {
  const PyObjectWithGuard contents = heldContents(self);
  return contents ? PyObject_GetItem(contents.get(), key) : nullptr;
}

int zorvanDictionary_setItem(PyObject* self, PyObject* key, PyObject* value) noexcept {
  const PyObjectWithGuard contents = heldContents(self);
  if (!contents) return -1;
  return value ? PyObject_SetItem(contents.get(), key, value)
               : PyObject_DelItem(contents.get(), key);
}

int zorvanDictionary_contains(PyObject* self, PyObject* key) noexcept {
  const PyObjectWithGuard contents = heldContents(self);
  return contents ? PyDict_Contains(contents.get(), key) : -1;
}

PyObject* zorvanDictionary_or(PyObject* left, PyObject* right) noexcept {
  if (!isMapping(left) || !isMapping(right)) return Py_NewRef(Py_NotImplemented);
  const auto both = PyObjectWithGuard::owned(PyDict_New());
  if (!both || PyDict_Update(both.get(), left) != 0 || PyDict_Update(both.get(), right) != 0) {
    return nullptr;
  }
  return zorvanDictionary_new_with_contents(both.get());
}

PyObject* zorvanDictionary_inPlaceOr(PyObject* self, PyObject* other) noexcept {
  const PyObjectWithGuard contents = heldContents(self);
  if (!contents) return nullptr;
  const auto updated = PyObjectWithGuard::owned(PyNumber_InPlaceOr(contents.get(), other));
  return updated ? Py_NewRef(self) : nullptr;
}

PyMethodDef* zorvanDictionaryMethods() noexcept {
  static PyMethodDef methods[] = {
      methodOfContents<kClear>("Removes all items."),
      {"copy", dictionary_copy, METH_NOARGS, "A dictionary with the same keys and values."},
      {"__copy__", dictionary_copy, METH_NOARGS, "The same as copy()."},
      {"fromkeys", dictionary_fromkeys, METH_VARARGS | METH_CLASS,
       "fromkeys(keys, value=None): a dictionary in which all keys have this value."},
      methodOfContents<kGet>("get(key, default=None): the value of the key, the default if none."),
      methodOfContents<kItems>("A view of the items, pairs of key and value."),
      methodOfContents<kKeys>("A view of the keys."),
      methodOfContents<kPop>("pop(key[, default]): removes the key and returns its value."),
      methodOfContents<kPopitem>("Removes the last item and returns it, a pair of key and value."),
      methodOfContents<kReversed>("An iterator over the keys from the last to the first."),
      methodOfContents<kSetdefault>(
          "setdefault(key, default=None): the value of the key, added if there is none."),
      methodOfContents<kUpdate>(
          "update([mapping or pairs], **items): adds items, or replaces their values."),
      methodOfContents<kValues>("A view of the values."),
      {"__reduce__", dictionary_reduce, METH_NOARGS, "What copying and pickling need."},
      {"__class_getitem__", Py_GenericAlias, METH_O | METH_CLASS,
       "For annotations: zorvan.dictionary[str, float]."},
      {nullptr, nullptr, 0, nullptr}};
  return methods;
}

}  // namespace PythonZorvanDataArray::detail
