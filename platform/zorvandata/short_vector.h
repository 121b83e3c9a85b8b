// Plain values in a row, the first few of them without heap memory: most messages are small.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace foundation::zorvandata {

// Adding a value throws std::bad_alloc, having changed nothing, and otherwise invalidates
// references to the others.
template <class T, size_t kFew>
class ShortVector {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  ShortVector() {}  // NOLINT(modernize-use-equals-default): leaves the storage as it is
  ShortVector(ShortVector&& other) noexcept
      : many_(std::move(other.many_)), size_(std::exchange(other.size_, 0)) {
    if (many_) {
      values_ = std::exchange(other.values_, reinterpret_cast<T*>(other.few_));
      capacity_ = std::exchange(other.capacity_, kFew);
    } else {
      std::uninitialized_copy_n(other.values_, size_, values_);
    }
  }
  ShortVector(const ShortVector& other) {
    for (const T& value : other) push_back(value);
  }
  ShortVector& operator=(ShortVector&&) = delete;

  size_t size() const { return size_; }
  const T* begin() const { return values_; }
  const T* end() const { return values_ + size_; }
  const T& operator[](size_t i) const { return values_[i]; }
  T& operator[](size_t i) { return values_[i]; }
  void reserve(size_t count) {
    if (count > capacity_) grow(count);
  }
  void push_back(T value) {
    if (size_ == capacity_) grow(2 * capacity_);
    new (values_ + size_) T(value);
    ++size_;
  }
  T& back() { return values_[size_ - 1]; }
  void pop_back() { --size_; }

 private:
  void grow(size_t capacity) {
    std::unique_ptr<std::byte[]> larger(new std::byte[capacity * sizeof(T)]);
    T* values = reinterpret_cast<T*>(larger.get());
    std::uninitialized_copy(begin(), end(), values);
    values_ = values;
    capacity_ = capacity;
    many_ = std::move(larger);
  }

  alignas(T) std::byte few_[kFew * sizeof(T)];
  std::unique_ptr<std::byte[]> many_;
  T* values_ = reinterpret_cast<T*>(few_);
  size_t size_ = 0;
  size_t capacity_ = kFew;
};

}  // namespace foundation::zorvandata
