// An attribute of a Python module, imported on first need and kept for the life of the process.
//
//   static ImportedAttribute timedelta("datetime", "timedelta");
//   PyObject* type = timedelta.get();
#pragma once

#include "util/py_object_guard_getter.h"

namespace PythonZorvanDataArray::detail {

class ImportedAttribute {
 public:
  // Both texts must outlive the process.
  constexpr ImportedAttribute(const char* module, const char* name)
      : module_(module), name_(name) {}
  ImportedAttribute(const ImportedAttribute&) = delete;
  ImportedAttribute& operator=(const ImportedAttribute&) = delete;

  // Borrowed for good; NULL with ImportError or AttributeError set, and then tried again next time.
  PyObject* get() {
    using PythonUtil::PyObjectGuardGetter;
    if (object_) return object_;
    const auto module = PyObjectGuardGetter::getModule(module_, true);
    if (!module) return nullptr;
    auto attribute = PyObjectGuardGetter::getAttrString(module.get(), name_, true);
    // The import may have let another thread come first.
    if (!object_) object_ = attribute.release();
    return object_;
  }

 private:
  const char* module_;
  const char* name_;
  PyObject* object_ = nullptr;
};

}  // namespace PythonZorvanDataArray::detail
