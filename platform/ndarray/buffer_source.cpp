#include "buffer_source.h"

#include <algorithm>
#include <cstdint>
#include <optional>

#include "buffer_format.h"

namespace ndarray {

namespace {

// Gives the buffer back unless its owner came to life.
class ReleaseOnFailure {
 public:
  explicit ReleaseOnFailure(Py_buffer& view) : view_(&view) {}
  ~ReleaseOnFailure() {
    if (view_ != nullptr) PyBuffer_Release(view_);
  }
  void dismiss() { view_ = nullptr; }

 private:
  Py_buffer* view_;
};

BufferFormat formatOf(const Py_buffer& view) {
  const char* format = view.format == nullptr ? "B" : view.format;
  const auto parsed = parseBufferFormat(format, static_cast<std::size_t>(view.itemsize));
  if (!parsed) {
    raise(PyExc_TypeError, std::string("buffer format '") + format + "' with items of " +
                               std::to_string(view.itemsize) +
                               " bytes has no counterpart among ZORVAN element types");
  }
  return *parsed;
}

// Nothing when there is no such attribute.
std::optional<Ref> attributeOf(PyObject* object, const char* name) {
  PyObject* attribute = PyObject_GetAttrString(object, name);
  if (attribute != nullptr) return Ref::take(attribute);
  if (!PyErr_ExceptionMatches(PyExc_AttributeError)) throw PythonError{};
  PyErr_Clear();
  return std::nullopt;
}

bool isTimeKind(PyObject* kind) {
  return PyUnicode_Check(kind) && (PyUnicode_CompareWithASCIIString(kind, "M") == 0 ||
                                   PyUnicode_CompareWithASCIIString(kind, "m") == 0);
}

// numpy's scalar dates and times pass their eight bytes of memory off as eight numbers. Their dtype
// tells.
void refuseDatesAsBytes(PyObject* exporter, const Py_buffer& view) {
  const bool could_be_one = view.len == 8 && view.itemsize == 1 && view.ndim == 1;
  if (!could_be_one) return;
  const auto dtype = attributeOf(exporter, "dtype");
  if (!dtype) return;
  const auto kind = attributeOf(dtype->get(), "kind");
  if (!kind || !isTimeKind(kind->get())) return;
  const Ref name = Ref::take(PyObject_Str(dtype->get()));
  const char* text = PyUnicode_AsUTF8AndSize(name.get(), nullptr);
  if (text == nullptr) throw PythonError{};
  raise(PyExc_TypeError,
        "numpy '" + std::string(text) + "' has no counterpart among ZORVAN element types");
}

// Whether every byte is 0 or 1. In blocks of a constant size, which compilers turn into vector
// instructions.
bool areFlags(const unsigned char* bytes, std::size_t count) {
  constexpr std::size_t kBlock = 64;
  unsigned char seen[kBlock] = {};
  std::size_t i = 0;
  for (; i + kBlock <= count; i += kBlock) {
    for (std::size_t j = 0; j < kBlock; ++j) seen[j] |= bytes[i + j];
  }
  for (; i < count; ++i) seen[0] |= bytes[i];
  return std::all_of(seen, seen + kBlock, [](unsigned char all) { return all <= 1; });
}

}  // namespace

BufferSource::BufferSource(PyObject* exporter) {
  if (PyObject_GetBuffer(exporter, &view_, PyBUF_FULL_RO) != 0) throw PythonError{};
  ReleaseOnFailure release(view_);
  refuseDatesAsBytes(exporter, view_);
  const BufferFormat format = formatOf(view_);
  type_ = format.type;
  copy_ = copyFunction(format.conversion, format.component_size, type_.componentCount());
  readLayout();
  byte_count_ = checkedByteCount(extents_, type_.size());
  in_place_ = isReadableInPlace(format.conversion);
  release.dismiss();
}

void BufferSource::readLayout() {
  const std::size_t item_size = static_cast<std::size_t>(view_.itemsize);
  const auto dimensions = static_cast<std::size_t>(view_.ndim);
  if (view_.suboffsets != nullptr &&
      std::any_of(view_.suboffsets, view_.suboffsets + dimensions,
                  [](Py_ssize_t suboffset) { return suboffset >= 0; })) {
    raise(PyExc_BufferError, "buffers with suboffsets cannot be read");
  }
  if (view_.shape != nullptr) {
    extents_.assign(view_.shape, view_.shape + dimensions);
  } else if (dimensions != 0) {
    extents_ = {view_.len / view_.itemsize};
  }
  const std::size_t source_bytes = checkedByteCount(extents_, item_size);
  if (static_cast<std::size_t>(view_.len) != source_bytes) {
    raise(PyExc_BufferError, "a buffer of size " + toText(extents_) + " with items of " +
                                 std::to_string(item_size) + " bytes cannot have " +
                                 std::to_string(view_.len) + " bytes");
  }
  if (view_.strides != nullptr) {
    strides_.assign(view_.strides, view_.strides + extents_.size());
  } else {
    strides_ = rowMajorStrides(extents_, item_size);
  }
  padToTwoDimensions(extents_);
  strides_.insert(strides_.begin(), extents_.size() - strides_.size(), view_.itemsize);
}

bool BufferSource::isReadableInPlace(ElementConversion conversion) const {
  const bool is_bool = conversion == ElementConversion::kNormalizeBool;
  if (conversion != ElementConversion::kNone && !is_bool) return false;
  const auto address = reinterpret_cast<std::uintptr_t>(view_.buf);
  if (view_.buf == nullptr || address % type_.info().component_size != 0) return false;
  if (!isColumnMajor(extents_, strides_, type_.size())) return false;
  return !is_bool || areFlags(static_cast<const unsigned char*>(view_.buf), byte_count_);
}

void BufferSource::copyTo(void* out) const noexcept {
  copy_({static_cast<const char*>(view_.buf), extents_.size(), extents_.data(), strides_.data()},
        out);
}

}  // namespace ndarray
