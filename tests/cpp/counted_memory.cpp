#include "counted_memory.h"

#include <atomic>
#include <cerrno>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, size_t),
                                              void (*onFree)(const volatile void*));
size_t __sanitizer_get_allocated_size(const volatile void* block);
}
#else
#include <malloc.h>
#endif

namespace {

std::atomic<ptrdiff_t> liveBytes{0};  // some are freed that were not counted
std::atomic<ptrdiff_t> peakBytes{0};

void add(size_t size) {
  const ptrdiff_t live = liveBytes += static_cast<ptrdiff_t>(size);
  if (live > peakBytes) peakBytes = live;
}

}  // namespace

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
namespace {

const int kHooks = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, size_t size) { add(size); },
    [](const volatile void* block) {
      if (block) liveBytes -= static_cast<ptrdiff_t>(__sanitizer_get_allocated_size(block));
    });

}  // namespace
#else
// In place of the C library's own, which they call.
extern "C" {

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* block);

static void* added(void* block) {
  if (block) add(malloc_usable_size(block));
  return block;
}

void* malloc(size_t size) noexcept { return added(__libc_malloc(size)); }
void* calloc(size_t count, size_t size) noexcept { return added(__libc_calloc(count, size)); }
void* memalign(size_t alignment, size_t size) noexcept {
  return added(__libc_memalign(alignment, size));
}
void* aligned_alloc(size_t alignment, size_t size) noexcept { return memalign(alignment, size); }
int posix_memalign(void** block, size_t alignment, size_t size) noexcept {
  *block = memalign(alignment, size);
  return *block ? 0 : ENOMEM;
}
void* realloc(void* block, size_t size) noexcept {
  const size_t before = block ? malloc_usable_size(block) : 0;
  void* grown = __libc_realloc(block, size);
  if (grown || size == 0) liveBytes -= static_cast<ptrdiff_t>(before);
  return added(grown);
}
void free(void* block) noexcept {
  if (block) liveBytes -= static_cast<ptrdiff_t>(malloc_usable_size(block));
  __libc_free(block);
}

}  // extern "C"
#endif

namespace counted {

size_t peakOf(const std::function<void()>& something) {
  const ptrdiff_t before = liveBytes;
  peakBytes = before;
  something();
  return static_cast<size_t>(peakBytes - before);
}

}  // namespace counted
