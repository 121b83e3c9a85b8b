// The extension module py_pb: start-up and the two module functions.
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "bridge/data_array_protobuf_bridge.h"
#include "module/keyword_args.h"
#include "to_array/encoder.h"
#include "to_python/create_py_object.h"
#include "types/start_up.h"
#include "util/py_object_guard.h"
#include "util/python_api.h"
#include "util/python_error.h"
#include "zorvandata/exception.h"

namespace PythonZorvanDataArray {
namespace {

using PythonUtil::PyObjectWithGuard;
using zds::client::zorvandata::protobuf::mdata2protobuf;
using zds::client::zorvandata::protobuf::protobuf2mdata;
using zds::client::zorvandata::protobuf::Result;

PyObject* fail(PyObject* type, const char* message) {
  setPythonErrorStr(type, message);
  return nullptr;
}

// The positional arguments of a call; `items` is NULL only when there are none.
struct Arguments {
  PyObject* const* items;
  Py_ssize_t count;
};

PyObject* toSerialized(PyObject* module, const Arguments& args, PyObject* kwargs) {
  if (!module) return fail(PyExc_ValueError, "Invalid module");
  int64_t nargout = KeywordArgs().nargout;
  if (kwargs) {  // which most calls do without
    const KeywordArgs keywords = parseKeywordArgs(kwargs, KeywordMode::kToSerialized);
    if (keywords.failed) return nullptr;
    nargout = keywords.nargout;
  }
  if (args.count != 1) {
    return fail(PyExc_TypeError, "py_to_serialized_str requires exactly one positional argument");
  }
  detail::Encoder encoder;
  encoder.append(args.items[0]);
  return mdata2protobuf(encoder.tape(), static_cast<long>(nargout)).release();
}

// The bytes of the only argument, as they are for as long as anybody holds them: those of a bytes
// object, or a copy of what another object exports.
class BytesArgument final : public foundation::zorvandata::Lender {
 public:
  explicit BytesArgument(const Arguments& args) {
    if (args.count != 1) return;
    PyObject* obj = args.items[0];
    if (Py_TYPE(obj) == &PyBytes_Type) {
      object_ = obj;
      bytes_ = {PyBytes_AsString(obj), static_cast<size_t>(PyBytes_Size(obj))};
      return;
    }
    Py_buffer view;
    if (PyObject_GetBuffer(obj, &view, PyBUF_SIMPLE) != 0) return;
    const ViewGuard guard(view);
    copy_ = std::make_shared<const std::string>(static_cast<const char*>(view.buf),
                                                static_cast<size_t>(view.len));
    bytes_ = *copy_;
  }
  BytesArgument(const BytesArgument&) = delete;
  BytesArgument& operator=(const BytesArgument&) = delete;

  explicit operator bool() const { return object_ || copy_; }
  std::string_view bytes() const { return bytes_; }
  std::shared_ptr<const void> hold() const override {
    if (copy_) return copy_;
    return std::make_shared<const PyObjectWithGuard>(PyObjectWithGuard::newReference(object_));
  }

 private:
  class ViewGuard {
   public:
    explicit ViewGuard(Py_buffer& view) : view_(view) {}
    ~ViewGuard() { PyBuffer_Release(&view_); }
    ViewGuard(const ViewGuard&) = delete;
    ViewGuard& operator=(const ViewGuard&) = delete;

   private:
    Py_buffer& view_;
  };

  PyObject* object_ = nullptr;  // held by the caller
  std::shared_ptr<const std::string> copy_;
  std::string_view bytes_;
};

PyObject* toPython(PyObject* module, const Arguments& args, PyObject* kwargs) {
  if (!module) return fail(PyExc_ValueError, "Module is null");
  const BytesArgument data(args);
  if (!data) return fail(PyExc_ValueError, "args invalid");
  if (kwargs && parseKeywordArgs(kwargs, KeywordMode::kToPython).failed) return nullptr;
  Result result;
  if (!protobuf2mdata(data.bytes(), data, result)) return nullptr;
  try {
    return createPyObject(result.arrays, result.error).release();
  } catch (const foundation::zorvandata::InvalidTextException& error) {
    zds::client::zorvandata::protobuf::reportBrokenResult(error.what());
    return nullptr;
  }
}

// The keywords of a call, the values of which follow the positional arguments, as a dict; empty
// with a Python error set.
PyObjectWithGuard keywordDict(PyObject* const* values, PyObject* names) {
  auto dict = PyObjectWithGuard::owned(PyDict_New());
  const Py_ssize_t count = dict ? PyTuple_Size(names) : 0;
  for (Py_ssize_t i = 0; i < count; ++i) {
    if (PyDict_SetItem(dict.get(), PyTuple_GetItem(names, i), values[i]) != 0) return {};
  }
  return dict;
}

// A function as the interpreter calls it: no C++ exception gets past it.
template <PyObject* (*function)(PyObject*, const Arguments&, PyObject*)>
PyObject* guarded(PyObject* module, PyObject* const* args, Py_ssize_t count,
                  PyObject* names) noexcept {
  try {
    if (!names) return function(module, {args, count}, nullptr);
    const PyObjectWithGuard keywords = keywordDict(args + count, names);
    return keywords ? function(module, {args, count}, keywords.get()) : nullptr;
  } catch (...) {
    PythonUtil::setPythonErrorFromException();
    return nullptr;
  }
}

template <PyObject* (*function)(PyObject*, const Arguments&, PyObject*)>
PyCFunction entry() {
  return reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(guarded<function>));
}

PyModuleDef* moduleDefinition() {
  static PyMethodDef methods[] = {
      {"py_to_serialized_str", entry<toSerialized>(), METH_FASTCALL | METH_KEYWORDS,
       "Convert tuple of Python objects to protobuf-serialized byte string."},
      {"serialized_str_to_py", entry<toPython>(), METH_FASTCALL | METH_KEYWORDS,
       "Convert protobuf-serialized byte string to tuple of Python objects."},
      {nullptr, nullptr, 0, nullptr}};
  static PyModuleDef definition = {
      PyModuleDef_HEAD_INIT, "py_pb", "py_pb", -1, methods, nullptr, nullptr, nullptr, nullptr};
  return &definition;
}

// The API version that the module is created with, whatever headers it was built against.
constexpr int kApiVersion = 1013;

}  // namespace
}  // namespace PythonZorvanDataArray

PyMODINIT_FUNC PyInit_py_pb() {
  using namespace PythonZorvanDataArray;  // NOLINT: the one function outside it
  try {
    initPythonZorvanDataArray();
  } catch (const std::exception& error) {
    setPythonErrorStr(PyExc_ValueError,
                      std::string("Unable to initialize py_pb. Details: ") + error.what());
    return nullptr;
  }
  PyObject* module = PyModule_Create2(moduleDefinition(), kApiVersion);
  if (!module) return fail(PyExc_ValueError, "Unable to create module");
  return module;
}
