#include "types/zorvan_object_type.h"

#include <new>
#include <string>

#include "types/guarded_slot.h"
#include "types/type_compare.h"
#include "util/message_catalogue.h"
#include "util/py_object_guard.h"
#include "util/python_error.h"
#include "zorvandata/element_references.h"

namespace PythonZorvanDataArray::detail {

PyTypeObject* zorvanObjectType = nullptr;

namespace {

using PythonUtil::PyObjectWithGuard;

struct Instance {
  PyObject_HEAD ZorvanObject* record;
};

ZorvanObject& recordOf(PyObject* self) { return *reinterpret_cast<Instance*>(self)->record; }

// The extents that the instance shows.
const std::vector<size_t>& shownDims(const ZorvanObject& record) {
  return record.indices.empty() ? record.dims : record.remainingDims;
}

// Column-major position of the indices.
size_t linearPosition(const ZorvanObject& record) {
  size_t position = 0;
  for (size_t k = record.dims.size(); k-- > 0;) {
    position = position * record.dims[k] + record.indices[k];
  }
  return position;
}

void zorvanObject_dealloc(PyObject* self) {
  PyTypeObject* type = Py_TYPE(self);
  delete reinterpret_cast<Instance*>(self)->record;
  reinterpret_cast<freefunc>(PyType_GetSlot(type, Py_tp_free))(self);
  Py_DECREF(type);
}

Py_ssize_t zorvanObject_length(PyObject* self) {
  return static_cast<Py_ssize_t>(shownDims(recordOf(self))[0]);
}

PyObject* zorvanObject_getSize(PyObject* self, void*) {
  const std::vector<size_t>& dims = shownDims(recordOf(self));
  auto size = PyObjectWithGuard::owned(PyTuple_New(static_cast<Py_ssize_t>(dims.size())));
  if (!size) return nullptr;
  for (size_t k = 0; k < dims.size(); ++k) {
    PyObject* extent = PyLong_FromSize_t(dims[k]);
    if (!extent || PyTuple_SetItem(size.get(), static_cast<Py_ssize_t>(k), extent) != 0) {
      return nullptr;
    }
  }
  return size.release();
}

// The record of parent[index]; the index is within the next dimension.
void fillIndexed(ZorvanObject& record, const ZorvanObject& parent, size_t index) {
  record.array = parent.array;
  record.element = parent.element;
  record.typeCode = parent.typeCode;
  record.dims = parent.dims;
  record.indices = parent.indices;
  record.indices.push_back(index);
  const auto next = static_cast<std::ptrdiff_t>(record.indices.size());
  record.remainingDims.assign(record.dims.begin() + next, record.dims.end());
  if (record.remainingDims.empty()) {
    record.remainingDims = {1, 1};
    record.element =
        foundation::zorvandata::detail::elementAsArray(record.array, linearPosition(record));
  }
}

PyObject* zorvanObject_item(PyObject* self, Py_ssize_t index) {
  return guardedSlot<PyObject*>(nullptr, [&]() -> PyObject* {
    const ZorvanObject& parent = recordOf(self);
    const size_t k = parent.indices.size();
    if (k == parent.dims.size() || index < 0 || static_cast<size_t>(index) >= parent.dims[k]) {
      setPythonErrorStr(PyExc_IndexError, formatMessage(IndexExceedsDim, index));
      return nullptr;
    }
    auto item =
        PyObjectWithGuard::owned(zorvanObject_new_internal(zorvanObjectType, nullptr, nullptr));
    if (!item) return nullptr;
    fillIndexed(recordOf(item.get()), parent, static_cast<size_t>(index));
    return item.release();
  });
}

// Besides the sequence slot because that one gets negative indices with the length added.
PyObject* zorvanObject_subscript(PyObject* self, PyObject* key) {
  const Py_ssize_t index = PyNumber_AsSsize_t(key, nullptr);  // clipped: out of range anyhow
  if (index == -1 && PyErr_Occurred()) return nullptr;
  return zorvanObject_item(self, index);
}

PyObject* zorvanObject_compare(PyObject* self, PyObject* other, int operation) {
  return guardedSlot<PyObject*>(nullptr, [&] {
    const auto isZorvanObject = [](PyObject* object) {
      return zorvanObjectRecord(object) != nullptr;
    };
    return type_compare(self, other, operation, isZorvanObject, zorvanObjectsAreEqual,
                        "zorvan.object");
  });
}

PyObject* zorvanObject_repr(PyObject* self) {
  return guardedSlot<PyObject*>(nullptr, [&] {
    const ZorvanObject& record = recordOf(self);
    std::string text = "<zorvan.object";
    char separator = ' ';
    for (const size_t extent : shownDims(record)) {
      text.append(1, separator).append(std::to_string(extent));
      separator = 'x';
    }
    text.append(" of class '").append(record.array.impl().layout()->className).append("'>");
    return PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()),
                                "backslashreplace");
  });
}

}  // namespace

PyObject* makeZorvanObjectType() {
  static PyGetSetDef attributes[] = {
      {"size", zorvanObject_getSize, nullptr, "dimensions of the 'zorvan.object' object", nullptr},
      {nullptr, nullptr, nullptr, nullptr, nullptr}};
  static char doc[] = "ZORVAN object";
  static PyType_Slot slots[] = {{Py_tp_doc, doc},
                                {Py_tp_dealloc, reinterpret_cast<void*>(zorvanObject_dealloc)},
                                {Py_tp_repr, reinterpret_cast<void*>(zorvanObject_repr)},
                                {Py_tp_richcompare, reinterpret_cast<void*>(zorvanObject_compare)},
                                {Py_tp_hash, reinterpret_cast<void*>(PyObject_HashNotImplemented)},
                                {Py_tp_getset, attributes},
                                {Py_sq_length, reinterpret_cast<void*>(zorvanObject_length)},
                                {Py_sq_item, reinterpret_cast<void*>(zorvanObject_item)},
                                {Py_mp_subscript, reinterpret_cast<void*>(zorvanObject_subscript)},
                                {0, nullptr}};
  static PyType_Spec spec = {
      "zorvan.object", sizeof(Instance), 0,
      Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION | Py_TPFLAGS_IMMUTABLETYPE, slots};
  return PyType_FromSpec(&spec);
}

PyObject* zorvanObject_new_internal(PyTypeObject* type, PyObject*, PyObject*) noexcept {
  const auto allocate = reinterpret_cast<allocfunc>(PyType_GetSlot(type, Py_tp_alloc));
  PyObject* self = allocate(type, 0);
  if (!self) return nullptr;
  auto& record = reinterpret_cast<Instance*>(self)->record;
  record = new (std::nothrow) ZorvanObject;
  if (record) return self;
  Py_DECREF(self);
  return PyErr_NoMemory();
}

ZorvanObject* zorvanObjectRecord(PyObject* object) noexcept {
  return Py_IS_TYPE(object, zorvanObjectType) ? &recordOf(object) : nullptr;
}

bool zorvanObjectsAreEqual(PyObject* a, PyObject* b) {
  const ZorvanObject& left = recordOf(a);
  const ZorvanObject& right = recordOf(b);
  return left.array == right.array && left.element == right.element && left.dims == right.dims &&
         left.indices == right.indices && left.remainingDims == right.remainingDims &&
         left.typeCode == right.typeCode;
}

}  // namespace PythonZorvanDataArray::detail
