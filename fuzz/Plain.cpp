// What the targets with routes put in the place of a host with all its memory: no more of it at
// once than this, so that a link of 2^60 samples is refused instead of ending the process.

#include <cstdlib>
#include <new>

namespace {
constexpr std::size_t LARGEST = 1 << 26;
}

void* operator new(std::size_t size) {
  if (void* memory = size > LARGEST ? nullptr : std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
