// Memory under dense arrays, together with whatever owns it.
#pragma once

#include <cstddef>
#include <memory>

namespace foundation::zorvandata {

// Bytes with an owner: an allocation of this library, or memory lent by somebody else for as long
// as the storage lives. Not thread-safe; the count of owners is.
class Storage {
 public:
  virtual ~Storage() = default;
  // The bytes in column-major element order; may gather them on first use.
  virtual const std::byte* data() = 0;
  // Writes the bytes to `out` without gathering them first.
  virtual void copyTo(std::byte* out) = 0;
  // True when the bytes may be changed in place.
  virtual bool writable() const = 0;
  // False when somebody else may change them.
  virtual bool isSettled() const { return true; }
};

// An own allocation of `size` bytes, 64-byte aligned, not initialised; asks for huge pages where
// that pays. Throws std::bad_alloc.
std::shared_ptr<Storage> allocateStorage(size_t size);

// Tells the kernel that `size` fresh bytes at `address` are about to be written: from 32 MiB on
// it is asked for huge pages, which saves most of the page faults. Never fails.
void adviseHugePages(void* address, size_t size);

// A value handle on bytes: up to 16 of them inside the handle, more in shared storage. Copies
// share storage; mutableData detaches first.
class Buffer {
 public:
  Buffer() = default;
  // `size` bytes, set to zero.
  static Buffer zeros(size_t size);
  // `size` bytes of unspecified value.
  static Buffer uninitialized(size_t size);
  static Buffer copyOf(const void* bytes, size_t size);
  static Buffer shared(std::shared_ptr<Storage> storage, size_t size);
  // Bytes of somebody else that stay as they are while `owner` is held; of any alignment.
  static Buffer lent(std::shared_ptr<const void> owner, const void* bytes, size_t size);

  size_t size() const { return size_; }
  const std::byte* data() const { return storage_ ? storage_->data() : inline_; }
  std::byte* mutableData();
  void copyTo(void* out) const;

  // Whether nobody else may change the bytes; and the bytes as nobody else can.
  bool isSettled() const { return !storage_ || storage_->isSettled(); }
  Buffer settled() const;

  // Storage that holds these bytes; made when they lie inside the handle.
  std::shared_ptr<Storage> toStorage() const;

 private:
  static constexpr size_t kInlineSize = 16;

  explicit Buffer(size_t size);

  alignas(16) std::byte inline_[kInlineSize] = {};
  size_t size_ = 0;
  std::shared_ptr<Storage> storage_;
};

}  // namespace foundation::zorvandata
