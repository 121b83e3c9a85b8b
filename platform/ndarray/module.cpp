// Start-up of the extension module zorvanmultidimarrayforpython.
#include "array_object.h"
#include "capsule.h"

PyMODINIT_FUNC PyInit_zorvanmultidimarrayforpython() {
  static PyModuleDef definition = {
      PyModuleDef_HEAD_INIT,
      "zorvanmultidimarrayforpython",
      "Column-major multi-dimensional arrays, one class for each element type.",
      -1,
      nullptr,
      nullptr,
      nullptr,
      nullptr,
      nullptr,
  };
  return ndarray::guardedObject([&] {
    ndarray::Ref module = ndarray::Ref::take(PyModule_Create(&definition));
    ndarray::addArrayClasses(module.get());
    const ndarray::Ref capsule = ndarray::makeCapsule();
    if (PyModule_AddObjectRef(module.get(), "_capi", capsule.get()) != 0)
      throw ndarray::PythonError{};
    return module;
  });
}
