// The memory of array elements together with what keeps it alive. Shared by the arrays that show
// the same elements; freed with the last of them, under the interpreter lock.
#pragma once

#include <cstddef>
#include <memory>

namespace ndarray {

class Storage {
 public:
  // Memory of its own, uninitialized and aligned for every element type. Throws std::bad_alloc.
  static std::shared_ptr<Storage> allocate(std::size_t byte_count);
  // Nothing yet; adopt() then cannot fail.
  static std::shared_ptr<Storage> makeEmpty();

  Storage() = default;
  Storage(const Storage&) = delete;
  Storage& operator=(const Storage&) = delete;
  ~Storage();

  // Shows memory that lives until release(owner) is called; release may be null. Storage that
  // holds memory already must not adopt any.
  void adopt(void* elements, void* owner, void (*release)(void*)) noexcept;

  // Never null.
  char* elements() const { return elements_; }

 private:
  char* elements_ = nullptr;
  void* owner_ = nullptr;
  void (*release_)(void*) = nullptr;
};

}  // namespace ndarray
