// The native interface of the package zorvanmultidimarrayforpython, carried by its capsule
// "zorvanmultidimarrayforpython._capi" as a pointer to one NdArrayCapi.
//
// Plain C data and noexcept functions only: the two extensions that meet here share no C++ class,
// no allocator and no exception. Every function is called with the interpreter lock held. A
// function that fails sets a Python exception and says so in its return value.
#pragma once

// NOLINTBEGIN(modernize-*): for C as well
#include <Python.h>
#include <stddef.h>
#include <stdint.h>

#define NDARRAY_CAPSULE_NAME "zorvanmultidimarrayforpython._capi"
#define NDARRAY_CAPI_VERSION 1

#ifdef __cplusplus
#define NDARRAY_NOEXCEPT noexcept
extern "C" {
#else
#define NDARRAY_NOEXCEPT
#endif

// Element type codes: 1 logical (one byte, 0 or 1), 4 double, 5 single, 6..13 int8, uint8, int16,
// uint16, int32, uint32, int64, uint64; the complex twin of a number type is its code plus 10
// (14..23), stored as interleaved (real, imaginary) pairs.

// One N-d value. Elements are in column-major order, native byte order, no padding.
typedef struct NdArrayDescription {
  int32_t type;          // element type code
  uint32_t ndim;         // number of dimensions, at least 2
  const size_t* dims;    // extents; valid until release
  const void* elements;  // byte_count bytes in column-major order, or NULL when the source has
                         // another layout and must be read with copy_elements
  size_t byte_count;     // elements * element size
  // Writes all elements to out (byte_count bytes, any alignment) in column-major order, in one
  // pass over the source. Never NULL in a description made by this package; cannot fail.
  void (*copy_elements)(const struct NdArrayDescription*, void* out) NDARRAY_NOEXCEPT;
  void* owner;                                    // keeps dims and elements alive; opaque
  void (*release)(void* owner) NDARRAY_NOEXCEPT;  // frees owner; NULL when there is nothing to free
} NdArrayDescription;

typedef struct NdArrayCapi {
  uint32_t abi_version;  // NDARRAY_CAPI_VERSION
  uint32_t struct_size;  // sizeof(NdArrayCapi)

  // 1 when the object exports a buffer, else 0. Sets no exception.
  int (*exports_buffer)(PyObject*) NDARRAY_NOEXCEPT;

  // Describes an instance of one of the package's array classes whose elements are of `type`.
  // 0 on success; -1 when the object is no such instance or has another element type (no exception
  // set).
  int (*describe_array)(PyObject*, int32_t type, NdArrayDescription* out) NDARRAY_NOEXCEPT;

  // Describes any object that exports a buffer. 0 on success; -1 with
  // TypeError/ValueError/BufferError/ MemoryError (or what the exporter raised) set.
  int (*describe_buffer)(PyObject*, NdArrayDescription* out) NDARRAY_NOEXCEPT;

  // Gives back what describe_array or describe_buffer returned and clears it.
  void (*release_description)(NdArrayDescription*) NDARRAY_NOEXCEPT;

  // A new instance of the class that belongs to the element type, sharing the described memory
  // (elements must not be NULL unless byte_count is 0). Takes over `owner` on success: release is
  // called when the instance and every buffer exported from it are gone. NULL with an exception set
  // on failure; the owner then stays with the caller.
  PyObject* (*make_array)(const NdArrayDescription*)NDARRAY_NOEXCEPT;
} NdArrayCapi;

#ifdef __cplusplus
}  // extern "C"
#endif
// NOLINTEND(modernize-*)
