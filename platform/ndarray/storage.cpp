#include "storage.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace ndarray {

namespace {

constexpr std::size_t kAlignment = 64;
constexpr std::size_t kHugePage = std::size_t{2} << 20;
// Smaller blocks are recycled by the allocator and their pages are there already.
constexpr std::size_t kHugePagesFrom = std::size_t{32} << 20;

void* allocateMemory(std::size_t byte_count) {
  const bool huge = byte_count >= kHugePagesFrom;
  const std::size_t alignment = huge ? kHugePage : kAlignment;
  const std::size_t rounded = (std::max<std::size_t>(byte_count, 1) + alignment - 1) & -alignment;
  void* memory = std::aligned_alloc(alignment, rounded);
  if (memory == nullptr) throw std::bad_alloc();
#ifdef MADV_HUGEPAGE
  // A request: without huge pages everything works, only slower.
  if (huge) static_cast<void>(madvise(memory, rounded, MADV_HUGEPAGE));
#endif
  return memory;
}

}  // namespace

std::shared_ptr<Storage> Storage::allocate(std::size_t byte_count) {
  std::shared_ptr<Storage> storage = makeEmpty();
  void* memory = allocateMemory(byte_count);
  storage->adopt(memory, memory, std::free);
  return storage;
}

std::shared_ptr<Storage> Storage::makeEmpty() { return std::make_shared<Storage>(); }

Storage::~Storage() {
  if (release_ != nullptr) release_(owner_);
}

void Storage::adopt(void* elements, void* owner, void (*release)(void*)) noexcept {
  static char nothing[kAlignment];
  elements_ = elements == nullptr ? nothing : static_cast<char*>(elements);
  owner_ = owner;
  release_ = release;
}

}  // namespace ndarray
