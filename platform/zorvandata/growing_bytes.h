// Bytes whose number is only known once they are there.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>

#include "zorvandata/buffer.h"

namespace foundation::zorvandata {

class GrowingBytes {
 public:
  GrowingBytes() = default;
  ~GrowingBytes();
  GrowingBytes(const GrowingBytes&) = delete;
  GrowingBytes& operator=(const GrowingBytes&) = delete;

  size_t size() const { return size_; }
  // Throws std::bad_alloc.
  void append(const void* bytes, size_t size) {
    if (capacity_ - size_ < size) grow(size);
    if (size) std::memcpy(bytes_ + size_, bytes, size);
    size_ += size;
  }
  // The bytes, which this then has no more.
  Buffer finish();

 private:
  void grow(size_t more);

  std::byte* bytes_ = nullptr;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

}  // namespace foundation::zorvandata
