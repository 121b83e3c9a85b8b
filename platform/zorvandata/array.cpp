#include "zorvandata/array.h"

#include <cstring>

#include "zorvandata/array_impl.h"
#include "zorvandata/element_references.h"
#include "zorvandata/exception.h"

namespace foundation::zorvandata {
namespace {

const ArrayImpl& unknownImpl() {
  static const ArrayImpl impl(ArrayType::UNKNOWN, Dimensions(), Items());
  return impl;
}

template <class T>
bool equalElements(const Buffer& a, const Buffer& b, size_t count) {
  const T* left = reinterpret_cast<const T*>(a.data());
  const T* right = reinterpret_cast<const T*>(b.data());
  for (size_t i = 0; i < count; ++i) {
    if (left[i] != right[i]) return false;
  }
  return true;
}

bool equalBuffers(ArrayType type, const Buffer& a, const Buffer& b) {
  if (a.size() != b.size()) return false;
  const size_t count = isDense(type) ? a.size() / elementSize(type) : 0;
  switch (type) {
    case ArrayType::DOUBLE:
      return equalElements<double>(a, b, count);
    case ArrayType::SINGLE:
      return equalElements<float>(a, b, count);
    case ArrayType::COMPLEX_DOUBLE:
      return equalElements<double>(a, b, 2 * count);
    case ArrayType::COMPLEX_SINGLE:
      return equalElements<float>(a, b, 2 * count);
    default:
      return a.size() == 0 || std::memcmp(a.data(), b.data(), a.size()) == 0;
  }
}

bool equalItems(const Items& a, const Items& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (a.get(i) != b.get(i)) return false;
  }
  return true;
}

bool equalTexts(const Texts& a, const Texts& b) {
  TextCursor other(b);
  bool isEqual = a.size() == b.size();
  if (isEqual) a.forEach([&](const auto& text) { isEqual = other.next() == text && isEqual; });
  return isEqual;
}

bool equalLayouts(const Layout* a, const Layout* b) { return a == b || (a && b && *a == *b); }

bool equalImpls(const ArrayImpl& a, const ArrayImpl& b) {
  if (a.type() != b.type() || a.dimensions() != b.dimensions()) return false;
  if (!equalLayouts(a.layout().get(), b.layout().get())) return false;
  if (isDense(a.type())) return equalBuffers(a.type(), a.buffer(), b.buffer());
  if (isSparse(a.type())) {
    const SparseContent& left = a.sparse();
    const SparseContent& right = b.sparse();
    return left.rows == right.rows && left.columnStarts == right.columnStarts &&
           equalBuffers(sparseValueType(a.type()), left.values, right.values);
  }
  switch (a.type()) {
    case ArrayType::HANDLE_OBJECT_REF:
      return equalBuffers(a.type(), a.buffer(), b.buffer());
    case ArrayType::ZORVAN_STRING:
    case ArrayType::ENUMERATION:
      return equalTexts(a.texts(), b.texts());
    default:
      return equalItems(a.items(), b.items());
  }
}

}  // namespace

Array::Array(const Array& other) noexcept : impl_(other.impl_) {
  if (impl_) impl_->retain();
}

Array::~Array() {
  if (impl_) impl_->release();
}

Array Array::adopt(ArrayImpl* impl) noexcept {
  Array array;
  array.impl_ = impl;
  return array;
}

Array Array::share(const ArrayImpl& impl) noexcept {
  impl.retain();
  return adopt(const_cast<ArrayImpl*>(&impl));
}

const ArrayImpl& Array::impl() const { return impl_ ? *impl_ : unknownImpl(); }

ArrayImpl& Array::mutableImpl() {
  if (!impl_ || impl_->shared()) *this = adopt(new ArrayImpl(impl()));
  return *impl_;
}

ArrayType Array::getType() const { return impl().type(); }
std::vector<size_t> Array::getDimensions() const { return dimensions().toVector(); }
size_t Array::getNumberOfElements() const { return impl().elements(); }
const Dimensions& Array::dimensions() const { return impl().dimensions(); }

ArrayReferenceExt Array::operator[](size_t index) const { return ArrayReferenceExt(*this, index); }
ArrayElementRef Array::operator[](size_t index) { return ArrayElementRef(*this, index); }

bool operator==(const Array& a, const Array& b) {
  return a.sharesWith(b) || equalImpls(a.impl(), b.impl());
}

bool isSparse(const Array& array) { return isSparse(array.getType()); }

}  // namespace foundation::zorvandata
