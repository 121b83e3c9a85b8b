// The only way to Python.h in this package, with the guards that its C API needs.
//
// Inside the package a failure is a C++ exception: PythonError when a Python exception is already
// set, anything else otherwise. guarded() stands at every entry from C and lets none of them out.
// Everything here needs the interpreter lock.
#pragma once

#if !defined(Py_LIMITED_API) || Py_LIMITED_API + 0 != 0x030B0000
#error "this package is built for the stable ABI of CPython 3.11"
#endif
#include <Python.h>

#include <exception>
#include <new>
#include <string>
#include <utility>

namespace ndarray {

// Thrown while a Python exception is set.
struct PythonError {};

[[noreturn]] inline void raise(PyObject* type, const std::string& text) {
  PyErr_SetString(type, text.c_str());
  throw PythonError{};
}

// Owns one reference; none once it was moved from or released.
class Ref {
 public:
  static Ref borrow(PyObject* object) { return Ref(Py_NewRef(object)); }
  // Takes over a new reference as the C API returns it; throws PythonError when it is null.
  static Ref take(PyObject* object) {
    if (object == nullptr) throw PythonError{};
    return Ref(object);
  }

  Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  Ref& operator=(Ref&&) = delete;
  ~Ref() { Py_XDECREF(object_); }

  PyObject* get() const { return object_; }
  PyObject* release() { return std::exchange(object_, nullptr); }

 private:
  explicit Ref(PyObject* object) : object_(object) {}

  PyObject* object_;
};

// The unqualified name of the object's type, for error texts; never fails.
inline std::string typeNameOf(PyObject* object) {
  PyObject* name = PyType_GetName(Py_TYPE(object));
  const char* text = name == nullptr ? nullptr : PyUnicode_AsUTF8AndSize(name, nullptr);
  std::string result = text == nullptr ? "?" : text;
  Py_XDECREF(name);
  PyErr_Clear();
  return result;
}

// Runs the body; an exception becomes a Python exception and the given failure value.
template <class Failure, class Body>
Failure guarded(Failure failure, Body&& body) noexcept {
  try {
    return body();
  } catch (const PythonError&) {
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const std::exception& error) {
    PyErr_SetString(PyExc_ValueError, error.what());
  }
  return failure;
}

// The same for functions that return a new reference.
template <class Body>
PyObject* guardedObject(Body&& body) noexcept {
  return guarded<PyObject*>(nullptr, [&] { return Ref(body()).release(); });
}

}  // namespace ndarray
