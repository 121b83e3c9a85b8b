#include "zorvandata/buffer.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace foundation::zorvandata {
namespace {

constexpr size_t kHugePage = size_t{2} << 20;
constexpr size_t kHugePagesFrom = size_t{32} << 20;

class OwnStorage : public Storage {
 public:
  explicit OwnStorage(size_t size) : size_(size) {
    const size_t alignment = size >= kHugePagesFrom ? kHugePage : 64;
    const size_t rounded = (size + alignment - 1) / alignment * alignment;
    if (rounded < size) throw std::bad_alloc();
    bytes_ = static_cast<std::byte*>(std::aligned_alloc(alignment, rounded ? rounded : alignment));
    if (!bytes_) throw std::bad_alloc();
    adviseHugePages(bytes_, size);
  }
  ~OwnStorage() override { std::free(bytes_); }
  OwnStorage(const OwnStorage&) = delete;
  OwnStorage& operator=(const OwnStorage&) = delete;

  const std::byte* data() override { return bytes_; }
  void copyTo(std::byte* out) override { std::memcpy(out, bytes_, size_); }
  bool writable() const override { return true; }

 private:
  std::byte* bytes_;
  size_t size_;
};

class LentStorage final : public Storage {
 public:
  LentStorage(std::shared_ptr<const void> owner, const void* bytes, size_t size)
      : owner_(std::move(owner)), bytes_(static_cast<const std::byte*>(bytes)), size_(size) {}

  const std::byte* data() override { return bytes_; }
  void copyTo(std::byte* out) override { std::memcpy(out, bytes_, size_); }
  bool writable() const override { return false; }

 private:
  std::shared_ptr<const void> owner_;
  const std::byte* bytes_;
  size_t size_;
};

}  // namespace

std::shared_ptr<Storage> allocateStorage(size_t size) { return std::make_shared<OwnStorage>(size); }

void adviseHugePages(void* address, size_t size) {
  if (size < kHugePagesFrom) return;
  // Only whole huge pages: from the first boundary inside the memory to the last.
  const size_t skipped = -reinterpret_cast<uintptr_t>(address) & (kHugePage - 1);
  const size_t whole = (size - skipped) & ~(kHugePage - 1);
  madvise(static_cast<char*>(address) + skipped, whole, MADV_HUGEPAGE);
}

Buffer::Buffer(size_t size) : size_(size) {
  if (size > kInlineSize) storage_ = allocateStorage(size);
}

Buffer Buffer::uninitialized(size_t size) { return Buffer(size); }

Buffer Buffer::zeros(size_t size) {
  Buffer buffer(size);
  if (size) std::memset(buffer.mutableData(), 0, size);
  return buffer;
}

Buffer Buffer::copyOf(const void* bytes, size_t size) {
  Buffer buffer(size);
  if (size) std::memcpy(buffer.mutableData(), bytes, size);
  return buffer;
}

Buffer Buffer::shared(std::shared_ptr<Storage> storage, size_t size) {
  Buffer buffer;
  buffer.size_ = size;
  buffer.storage_ = std::move(storage);
  return buffer;
}

Buffer Buffer::lent(std::shared_ptr<const void> owner, const void* bytes, size_t size) {
  return shared(std::make_shared<LentStorage>(std::move(owner), bytes, size), size);
}

std::byte* Buffer::mutableData() {
  if (!storage_) return inline_;
  if (storage_.use_count() > 1 || !storage_->writable()) {
    auto own = allocateStorage(size_);
    storage_->copyTo(const_cast<std::byte*>(own->data()));
    storage_ = std::move(own);
  }
  return const_cast<std::byte*>(storage_->data());
}

void Buffer::copyTo(void* out) const {
  if (size_ == 0) return;
  if (storage_) {
    storage_->copyTo(static_cast<std::byte*>(out));
  } else {
    std::memcpy(out, inline_, size_);
  }
}

Buffer Buffer::settled() const {
  if (isSettled()) return *this;
  Buffer own(size_);
  copyTo(own.mutableData());
  return own;
}

std::shared_ptr<Storage> Buffer::toStorage() const {
  if (storage_) return storage_;
  auto own = allocateStorage(size_);
  std::memcpy(const_cast<std::byte*>(own->data()), inline_, size_);
  return own;
}

}  // namespace foundation::zorvandata
