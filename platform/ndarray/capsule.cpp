#include "capsule.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "array_object.h"
#include "buffer_source.h"

namespace ndarray {

namespace {

const std::size_t* dimsOf(const Extents& extents) {
  return reinterpret_cast<const std::size_t*>(extents.data());
}

void copyInPlaceElements(const NdArrayDescription* description, void* out) noexcept {
  if (description->byte_count != 0) {
    std::memcpy(out, description->elements, description->byte_count);
  }
}

void copyBufferElements(const NdArrayDescription* description, void* out) noexcept {
  static_cast<const BufferSource*>(description->owner)->copyTo(out);
}

void releaseArray(void* owner) noexcept { Py_DECREF(static_cast<PyObject*>(owner)); }

void releaseBuffer(void* owner) noexcept { delete static_cast<BufferSource*>(owner); }

int exportsBuffer(PyObject* object) noexcept { return PyObject_CheckBuffer(object); }

int describeArray(PyObject* object, std::int32_t type, NdArrayDescription* out) noexcept {
  const ArrayObject* array = asArray(object);
  if (array == nullptr || array->type.code() != type) return -1;
  *out = {type,
          static_cast<std::uint32_t>(array->extents.size()),
          dimsOf(array->extents),
          array->elements(),
          array->byteCount(),
          copyInPlaceElements,
          Py_NewRef(object),
          releaseArray};
  return 0;
}

int describeBuffer(PyObject* object, NdArrayDescription* out) noexcept {
  return guarded(-1, [&] {
    auto source = std::make_unique<BufferSource>(object);
    *out = {source->type().code(),
            static_cast<std::uint32_t>(source->extents().size()),
            dimsOf(source->extents()),
            source->elements(),
            source->byteCount(),
            copyBufferElements,
            source.get(),
            releaseBuffer};
    static_cast<void>(source.release());  // now the description's
    return 0;
  });
}

void releaseDescription(NdArrayDescription* description) noexcept {
  if (description->release != nullptr) description->release(description->owner);
  *description = {};
}

Extents extentsOf(const NdArrayDescription& description) {
  if (description.ndim < 2) raise(PyExc_ValueError, "an array has at least two dimensions");
  Extents extents(description.ndim);
  std::transform(description.dims, description.dims + description.ndim, extents.begin(),
                 [](std::size_t extent) {
                   if (extent > static_cast<std::size_t>(PY_SSIZE_T_MAX)) {
                     raise(PyExc_ValueError, "extent " + std::to_string(extent) + " is too large");
                   }
                   return static_cast<Py_ssize_t>(extent);
                 });
  return extents;
}

PyObject* makeDescribedArray(const NdArrayDescription* description) noexcept {
  return guardedObject([&] {
    const auto type = elementTypeOfCode(description->type);
    if (!type) {
      raise(PyExc_ValueError,
            "no array class has elements of type code " + std::to_string(description->type));
    }
    Extents extents = extentsOf(*description);
    const std::size_t byte_count = checkedByteCount(extents, type->size());
    const bool has_elements = description->elements != nullptr || byte_count == 0;
    if (description->byte_count != byte_count || !has_elements) {
      raise(PyExc_ValueError, "an array of size " + toText(extents) + " has " +
                                  std::to_string(byte_count) + " bytes of elements, not " +
                                  std::to_string(has_elements ? description->byte_count : 0));
    }
    const std::shared_ptr<Storage> storage = Storage::makeEmpty();
    Ref array = makeArray(*type, std::move(extents), storage);
    storage->adopt(const_cast<void*>(description->elements), description->owner,
                   description->release);
    return array;
  });
}

}  // namespace

Ref makeCapsule() {
  static NdArrayCapi interface = {NDARRAY_CAPI_VERSION, sizeof(NdArrayCapi), exportsBuffer,
                                  describeArray,        describeBuffer,      releaseDescription,
                                  makeDescribedArray};
  return Ref::take(PyCapsule_New(&interface, NDARRAY_CAPSULE_NAME, nullptr));
}

}  // namespace ndarray
