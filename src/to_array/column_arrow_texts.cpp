#include "to_array/column_arrow_texts.h"

#include <cstring>
#include <string_view>

#include "types/ndpy_array_bridge.h"
#include "util/py_object_guard.h"
#include "util/python_error.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/text.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ItemList;
using PythonUtil::PyObjectWithGuard;

namespace {

// One of the buffers of an Arrow array; empty where it has none.
class ArrowBuffer {
 public:
  // False with a Python error set.
  bool read(PyObject* buffer) {
    if (buffer == Py_None) return true;
    std::optional<Array> bytes = PythonNdPyArray::arrayFromBuffer(buffer);
    if (!bytes) return false;
    bytes_ = std::move(*bytes);
    return true;
  }
  const char* data() const {
    return size() == 0 ? nullptr : reinterpret_cast<const char*>(bytes_.impl().buffer().data());
  }
  size_t size() const { return bytes_.getNumberOfElements(); }

 private:
  Array bytes_;
};

// A piece of a column: `count` texts from position `start` of the buffers on.
struct ArrowTexts {
  ArrowBuffer validity;  // a bit each; empty when there is no gap
  ArrowBuffer offsets;   // one more than there are texts
  ArrowBuffer texts;
  size_t start = 0;
  size_t count = 0;

  bool isGap(size_t i) const {
    const size_t bit = start + i;
    return validity.size() > 0 && ((validity.data()[bit / 8] >> (bit % 8)) & 1) == 0;
  }
};

PyObjectWithGuard attribute(PyObject* obj, const char* name) {
  return PyObjectWithGuard::owned(PyObject_GetAttrString(obj, name));
}

bool isText(const PyObjectWithGuard& obj, const char* text) {
  return obj && PyUnicode_Check(obj.get()) &&
         PyUnicode_CompareWithASCIIString(obj.get(), text) == 0;
}

// Whether the dtype says that Arrow keeps the texts. Sets no error.
bool isKeptByArrow(PyObject* series) {
  const PyObjectWithGuard dtype = attribute(series, "dtype");
  const bool isArrows = dtype && attribute(dtype.get(), "pyarrow_dtype");
  PyErr_Clear();
  if (isArrows || !dtype) return isArrows;
  const PyObjectWithGuard storage = attribute(dtype.get(), "storage");
  PyErr_Clear();
  return isText(storage, "pyarrow") || isText(storage, "pyarrow_numpy");
}

// The pieces of the column as a list or the only one alone; empty with a Python error set.
PyObjectWithGuard piecesOf(PyObject* series) {
  const PyObjectWithGuard values = attribute(series, "array");
  auto arrow = PyObjectWithGuard::owned(
      values ? PyObject_CallMethod(values.get(), "__arrow_array__", nullptr) : nullptr);
  if (!arrow) return {};
  PyObjectWithGuard chunks = attribute(arrow.get(), "chunks");
  if (chunks || !PyErr_ExceptionMatches(PyExc_AttributeError)) return chunks;
  PyErr_Clear();
  return PyObjectWithGuard::owned(PyList_New(0))
             ? PyObjectWithGuard::owned(PyTuple_Pack(1, arrow.get()))
             : PyObjectWithGuard();
}

// Width of the offsets of the piece's type, 0 for a type that is laid out in another way.
size_t offsetWidth(PyObject* piece) {
  const PyObjectWithGuard type = attribute(piece, "type");
  const auto name = PyObjectWithGuard::owned(type ? PyObject_Str(type.get()) : nullptr);
  PyErr_Clear();
  if (isText(name, "string")) return sizeof(int32_t);
  return isText(name, "large_string") ? sizeof(int64_t) : 0;
}

}  // namespace

}  // namespace PythonZorvanDataArray::detail
