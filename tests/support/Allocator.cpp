#include "support/Allocator.h"

#include <cstdlib>
#include <new>

namespace test {

std::atomic<bool (*)(std::size_t)> mayAllocate{nullptr};

}  // namespace test

namespace {

void* Allocate(std::size_t size, std::size_t alignment) {
  const auto may = test::mayAllocate.load();
  void* memory = nullptr;
  if (may != nullptr && !may(size)) return nullptr;
  return posix_memalign(&memory, alignment, size) == 0 ? memory : nullptr;
}
void* OrThrow(void* memory) {
  return memory != nullptr ? memory : throw std::bad_alloc();
}

}  // namespace

// All of them, so that memory never comes from one allocator and goes to another.
#if defined(__GNUC__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t size) {
  return OrThrow(Allocate(size, alignof(std::max_align_t)));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return OrThrow(Allocate(size, static_cast<std::size_t>(alignment)));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size, alignof(std::max_align_t));
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
  std::free(memory);
}
