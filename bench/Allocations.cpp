#include "Allocations.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

namespace {

std::atomic<bool> counting{false};
std::atomic<std::uint64_t> allocations{0};

void Count() {
  if (counting.load(std::memory_order_relaxed)) allocations.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

namespace bench {

std::uint64_t StartCounting() {
  counting = true;
  return allocations;
}

std::uint64_t StopCounting() {
  counting = false;
  return allocations;
}

}  // namespace bench

#if defined(__GLIBC__)
// In front of the C library's own, which every library of the process allocates from. Not for every
// platform: elsewhere the count stays 0 and the report says nothing of it.
#pragma GCC visibility push(default)
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

void* malloc(std::size_t size) {
  Count();
  return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
  Count();
  return __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) {
  Count();
  return __libc_realloc(memory, size);
}
void* memalign(std::size_t alignment, std::size_t size) {
  Count();
  return __libc_memalign(alignment, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  Count();
  return __libc_memalign(alignment, size);
}
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  Count();
  void* allocated = __libc_memalign(alignment, size);
  if (allocated == nullptr) return ENOMEM;
  *memory = allocated;
  return 0;
}
}
#pragma GCC visibility pop
#endif
