#include "types/start_up.h"

#include <stdexcept>
#include <string>

#include "types/ndpy_array_bridge.h"
#include "types/zorvan_dictionary_iterator.h"
#include "types/zorvan_dictionary_type.h"
#include "types/zorvan_object_type.h"
#include "util/py_object_guard.h"

// Present only in a process that checks for leaks.
extern "C" {
__attribute__((weak)) void __lsan_disable();
__attribute__((weak)) void __lsan_enable();
}

namespace PythonZorvanDataArray {

namespace detail {
namespace {

using PythonUtil::PyObjectWithGuard;

// What a package allocates at import lives as long as the process.
class LeakCheckPause {
 public:
  LeakCheckPause() {
    if (__lsan_disable) __lsan_disable();
  }
  ~LeakCheckPause() {
    if (__lsan_enable) __lsan_enable();
  }
  LeakCheckPause(const LeakCheckPause&) = delete;
  LeakCheckPause& operator=(const LeakCheckPause&) = delete;
};

PyObjectWithGuard importZorvan() {
  const LeakCheckPause pause;
  return PyObjectWithGuard::owned(PyImport_ImportModule("zorvan"));
}

PyObjectWithGuard requireType(PyObject* type, const std::string& variable) {
  if (!type) throw std::runtime_error("PyType_Ready(&" + variable + ") failed.");
  return PyObjectWithGuard::owned(type);
}

void publish(PyObject* package, const char* name, const PyObjectWithGuard& type) {
  if (PyModule_AddObjectRef(package, name, type.get()) != 0) {
    throw std::runtime_error(std::string("PyModule_AddObject() failed for '") + name + "'.");
  }
}

PyTypeObject* keep(PyObjectWithGuard& type) {
  return reinterpret_cast<PyTypeObject*>(type.release());
}

}  // namespace

void initZorvanObjectTypes() {
  static bool done = false;
  if (done) return;

  const PyObjectWithGuard zorvan = importZorvan();
  if (PyErr_Occurred()) {
    PyErr_Print();
    throw std::runtime_error("Failed to initialize 'zorvan' module.");
  }
  if (!zorvan) throw std::runtime_error("Failed to import 'zorvan' module.");

  auto object = requireType(makeZorvanObjectType(), "zorvanObjectType");
  publish(zorvan.get(), "object", object);
  auto dictionary = requireType(makeZorvanDictionaryType(), "zorvanDictionaryType");
  publish(zorvan.get(), "dictionary", dictionary);
  auto iterator = requireType(makeZorvanDictionaryIterType(), "zorvanDictionaryIter_Type");

  zorvanObjectType = keep(object);
  zorvanDictionaryType = keep(dictionary);
  zorvanDictionaryIter_Type = keep(iterator);
  done = true;
}

}  // namespace detail

void initPythonZorvanDataArray() {
  detail::initZorvanObjectTypes();
  PythonNdPyArray::initPythonNdPyArray();
}

}  // namespace PythonZorvanDataArray
