#include "util/type_names.h"

#include <cstddef>

#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

namespace {

using PythonUtil::PyObjectWithGuard;

// Empty for what is no text or cannot be encoded.
std::string utf8Of(const PyObjectWithGuard& text) {
  Py_ssize_t size = 0;
  const char* bytes = nullptr;
  if (text && PyUnicode_Check(text.get())) {
    bytes = PyUnicode_AsUTF8AndSize(text.get(), &size);
  }
  if (bytes == nullptr) {
    PyErr_Clear();
    return {};
  }
  return {bytes, static_cast<std::size_t>(size)};
}

// The descriptor behind `type.__module__`. The class `type` keeps it as long as Python runs.
PyObject* moduleDescriptor() {
  static PyObject* descriptor = nullptr;
  if (descriptor == nullptr) {
    PyObject* const metatype = reinterpret_cast<PyObject*>(&PyType_Type);
    const auto dict = PyObjectWithGuard::owned(PyObject_GetAttrString(metatype, "__dict__"));
    if (dict) {
      descriptor = PyMapping_GetItemString(dict.get(), "__module__");
    }
  }
  return descriptor;
}

// The module that the type itself names, NULL if it names none: for a static type the front part
// of its C name, otherwise the entry in its own dict. Asking the descriptor directly passes by the
// attribute look-up, which a metaclass can override.
PyObjectWithGuard moduleOf(PyTypeObject* type) {
  PyObjectWithGuard module;
  if (PyObject* const descriptor = moduleDescriptor()) {
    const auto read =
        reinterpret_cast<descrgetfunc>(PyType_GetSlot(Py_TYPE(descriptor), Py_tp_descr_get));
    module = PyObjectWithGuard::owned(read(descriptor, reinterpret_cast<PyObject*>(type), nullptr));
  }
  if (!module) {
    PyErr_Clear();
  }
  return module;
}

std::string bareNameOf(PyTypeObject* type) {
  return utf8Of(PyObjectWithGuard::owned(PyType_GetName(type)));
}

// The deallocator that the interpreter gives to every class defined in Python.
void* pythonClassDeallocator() {
  static void* deallocator = nullptr;
  if (deallocator == nullptr) {
    const auto sample = PyObjectWithGuard::owned(
        PyObject_CallFunction(reinterpret_cast<PyObject*>(&PyType_Type), "s(){}", "sample"));
    if (sample) {
      deallocator = PyType_GetSlot(reinterpret_cast<PyTypeObject*>(sample.get()), Py_tp_dealloc);
    } else {
      PyErr_Clear();
    }
  }
  return deallocator;
}

// Types made from a C description are heap types with a module in their dict too. Most bring their
// own deallocator. Those that inherit it are told by their tables: a class defined in Python always
// has one of members, if only an empty one, and never one of methods.
bool isDefinedInPython(PyTypeObject* type) {
  return (PyType_GetFlags(type) & Py_TPFLAGS_HEAPTYPE) != 0 &&
         PyType_GetSlot(type, Py_tp_dealloc) == pythonClassDeallocator() &&
         PyType_GetSlot(type, Py_tp_members) != nullptr &&
         PyType_GetSlot(type, Py_tp_methods) == nullptr;
}

}  // namespace

std::string typeNameOf(PyTypeObject* type) {
  // A key in its dict may be a str subclass whose comparison runs code that drops the type.
  const auto held = PyObjectWithGuard::newReference(reinterpret_cast<PyObject*>(type));
  const PyObjectWithGuard module = moduleOf(type);
  std::string name = bareNameOf(type);
  if (!module) {
    return name;
  }
  const std::string moduleName = utf8Of(module);
  if (moduleName.empty()) {
    return {};
  }
  return moduleName == "builtins" ? name : moduleName + "." + name;
}

std::string getUnqualifiedName(PyObject* object) {
  if (object == nullptr) {
    return {};
  }
  const auto type = PyObjectWithGuard::owned(PyObject_Type(object));
  PyTypeObject* const exactType = reinterpret_cast<PyTypeObject*>(type.get());
  const std::string fullName = isDefinedInPython(exactType) ? "" : typeNameOf(exactType);
  return fullName.empty() ? bareNameOf(exactType) : fullName;
}

std::string getModName(PyObject* /*object*/) { return {}; }

std::string getQualifiedName(PyObject* object) { return getUnqualifiedName(object); }

bool checkByName(PyObject* object, const char* name) { return getQualifiedName(object) == name; }

bool PyZorvanObject_Check(PyObject* object) { return checkByName(object, "zorvan.object"); }

bool PyZorvanDictionary_Check(PyObject* object) { return checkByName(object, "zorvan.dictionary"); }

}  // namespace PythonZorvanDataArray::detail
