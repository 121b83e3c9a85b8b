#include "types/zorvan_dictionary_type.h"

namespace PythonZorvanDataArray::detail {

PyTypeObject* zorvanDictionaryType = nullptr;
PyTypeObject* zorvanDictionaryIter_Type = nullptr;

namespace {

constexpr unsigned int kFlags =
    Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION | Py_TPFLAGS_IMMUTABLETYPE;

}  // namespace

PyObject* makeZorvanDictionaryType() {
  static char doc[] = "ZORVAN dictionary";
  static PyType_Slot slots[] = {{Py_tp_doc, doc}, {0, nullptr}};
  static PyType_Spec spec = {"zorvan.dictionary", sizeof(PyObject), 0, kFlags, slots};
  return PyType_FromSpec(&spec);
}

PyObject* makeZorvanDictionaryIterType() {
  static PyType_Slot slots[] = {{0, nullptr}};
  static PyType_Spec spec = {"zorvan.dictionary_iter", sizeof(PyObject), 0, kFlags, slots};
  return PyType_FromSpec(&spec);
}

}  // namespace PythonZorvanDataArray::detail
