#include "zorvandata/growing_bytes.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

namespace foundation::zorvandata {
namespace {

constexpr size_t kFirst = 4096;

class TakenBytes final : public Storage {
 public:
  TakenBytes(std::byte* bytes, size_t size) : bytes_(bytes), size_(size) {}
  ~TakenBytes() override { std::free(bytes_); }
  TakenBytes(const TakenBytes&) = delete;
  TakenBytes& operator=(const TakenBytes&) = delete;

  const std::byte* data() override { return bytes_; }
  void copyTo(std::byte* out) override {
    if (size_) std::memcpy(out, bytes_, size_);
  }
  bool writable() const override { return true; }

 private:
  std::byte* bytes_;
  size_t size_;
};

}  // namespace

GrowingBytes::~GrowingBytes() { std::free(bytes_); }

// By realloc, which moves the pages of large memory instead of their content.
void GrowingBytes::grow(size_t more) {
  const size_t capacity = std::max({kFirst, 2 * capacity_, size_ + more});
  auto* bytes = static_cast<std::byte*>(std::realloc(bytes_, capacity));
  if (!bytes) throw std::bad_alloc();
  bytes_ = bytes;
  capacity_ = capacity;
}

Buffer GrowingBytes::finish() {
  const size_t size = std::exchange(size_, 0);
  if (size > 0 && size < capacity_ / 4 * 3) {
    // A smaller place for the same bytes; that there is none is no reason to fail.
    if (void* trimmed = std::realloc(bytes_, size)) bytes_ = static_cast<std::byte*>(trimmed);
  }
  auto storage = std::make_shared<TakenBytes>(bytes_, size);
  bytes_ = nullptr;
  capacity_ = 0;
  return Buffer::shared(std::move(storage), size);
}

}  // namespace foundation::zorvandata
