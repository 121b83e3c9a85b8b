// Holder of one Python reference, released when its scope ends.
//
// An owning guard releases its reference on destruction; a borrowing one never does, so whatever it
// borrows from must outlive it. Take `newReference` instead of `borrowed` wherever Python code can
// run while the guard is in use. The interpreter lock must be held for every operation on a guard
// that is not empty. No operation throws or sets a Python error.
#pragma once

#include <utility>

#include "util/python_api.h"

namespace PythonUtil {

class PyObjectWithGuard {
 public:
  PyObjectWithGuard() noexcept = default;

  // Takes over the caller's reference; `object` may be NULL, as for all three makers.
  static PyObjectWithGuard owned(PyObject* object) noexcept { return {object, true}; }

  // Adds a reference of the guard's own.
  static PyObjectWithGuard newReference(PyObject* object) noexcept {
    Py_XINCREF(object);
    return {object, true};
  }

  // Leaves the reference with whoever has it.
  static PyObjectWithGuard borrowed(PyObject* object) noexcept { return {object, false}; }

  PyObjectWithGuard(PyObjectWithGuard&& other) noexcept
      : object_(std::exchange(other.object_, nullptr)), owned_(other.owned_) {}

  // The old reference goes last: its finalizer may run code that sees this guard.
  PyObjectWithGuard& operator=(PyObjectWithGuard&& other) noexcept {
    PyObjectWithGuard moved(std::move(other));
    std::swap(object_, moved.object_);
    std::swap(owned_, moved.owned_);
    return *this;
  }

  PyObjectWithGuard(const PyObjectWithGuard&) = delete;
  PyObjectWithGuard& operator=(const PyObjectWithGuard&) = delete;

  ~PyObjectWithGuard() noexcept {
    if (owned_) {
      Py_XDECREF(object_);
    }
  }

  PyObject* get() const noexcept { return object_; }

  explicit operator bool() const noexcept { return object_ != nullptr; }

  // Empties the guard and gives the caller a reference to release, NULL from an empty guard.
  [[nodiscard]] PyObject* release() noexcept {
    if (!owned_) {
      Py_XINCREF(object_);
    }
    return std::exchange(object_, nullptr);
  }

 private:
  PyObjectWithGuard(PyObject* object, bool owns) noexcept : object_(object), owned_(owns) {}

  PyObject* object_ = nullptr;
  bool owned_ = true;
};

}  // namespace PythonUtil
