#include "support/Faults.h"

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vantrel.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace test {
namespace {

// No call here may allocate.
char faulty[32] = "";
std::atomic<long> left{0};
std::atomic<int> errorOfFault{0};
std::atomic<long> records{0};

bool Fails(const char* function) {
  if (left.load(std::memory_order_acquire) <= 0 || std::strcmp(function, faulty) != 0) return false;
  if (left.fetch_sub(1) != 1) return false;
  errno = errorOfFault;
  return true;
}

template <typename Function>
Function Next(Function, const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void SetFault(const std::string& function, long nth, int error) {
  left = 0;
  function.copy(faulty, sizeof faulty - 1);
  faulty[function.size()] = '\0';
  errorOfFault = error;
  records = 0;
  left.store(nth, std::memory_order_release);
}

bool ClearFault() {
  return left.exchange(0) <= 0;
}

long RecordsOfFault() {
  return records;
}

}  // namespace test

// The pairs must match: whoever replaces new replaces delete.
#if defined(__GNUC__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t size) {
  if (void* memory = test::Fails("new") ? nullptr : std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  const auto align = static_cast<std::size_t>(alignment);
  void* memory = nullptr;
  if (!test::Fails("new") && posix_memalign(&memory, align, size) == 0) return memory;
  throw std::bad_alloc();
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

// Behind each: what it answers when it fails.
#define FAULTY_CALL(result, name, failure, parameters, arguments, ...)           \
  extern "C" [[gnu::visibility("default")]] result name parameters __VA_ARGS__ { \
    static const auto real = test::Next(&name, #name);                           \
    return test::Fails(#name) ? (failure) : real arguments;                      \
  }

FAULTY_CALL(int, socket, -1, (int a, int b, int c), (a, b, c), noexcept)
FAULTY_CALL(int, bind, -1, (int fd, const sockaddr* a, socklen_t n), (fd, a, n), noexcept)
FAULTY_CALL(int, listen, -1, (int fd, int n), (fd, n), noexcept)
FAULTY_CALL(int, accept4, -1, (int fd, sockaddr* a, socklen_t* n, int flags), (fd, a, n, flags))
FAULTY_CALL(int, poll, -1, (pollfd * fds, nfds_t n, int timeout), (fds, n, timeout))
FAULTY_CALL(ssize_t, recv, -1, (int fd, void* b, size_t n, int flags), (fd, b, n, flags))
FAULTY_CALL(ssize_t, send, -1, (int fd, const void* b, size_t n, int flags), (fd, b, n, flags))
FAULTY_CALL(ssize_t, write, -1, (int fd, const void* b, size_t n), (fd, b, n))
FAULTY_CALL(int, pipe2, -1, (int* fds, int flags), (fds, flags), noexcept)
FAULTY_CALL(int, fchmod, -1, (int fd, mode_t mode), (fd, mode), noexcept)
FAULTY_CALL(int, chmod, -1, (const char* path, mode_t mode), (path, mode), noexcept)
FAULTY_CALL(int, unlink, -1, (const char* path), (path), noexcept)
FAULTY_CALL(int, getsockopt, -1, (int fd, int a, int b, void* c, socklen_t* d), (fd, a, b, c, d),
            noexcept)
FAULTY_CALL(int, shutdown, -1, (int fd, int how), (fd, how), noexcept)
FAULTY_CALL(FILE*, fopen, nullptr, (const char* path, const char* mode), (path, mode))
FAULTY_CALL(size_t, fwrite, 0, (const void* b, size_t s, size_t n, FILE* f), (b, s, n, f))
FAULTY_CALL(char*, fgets, nullptr, (char* s, int n, FILE* f), (s, n, f))
FAULTY_CALL(void*, dlopen, nullptr, (const char* path, int mode), (path, mode), noexcept)
#if !defined(__SANITIZE_THREAD__)
FAULTY_CALL(int, pthread_create, test::errorOfFault.load(),
            (pthread_t * t, const pthread_attr_t* a, void* (*f)(void*), void* p), (t, a, f, p),
            noexcept)
#endif

// In the logging library's place: a record costs no memory.
extern "C" {
void vantrel_print(int, int, int, char level, const char*, int, const char* function, const void*,
                   const char* format, ...) {
  if (level != 'E' && level != 'W') return;
  ++test::records;
  if (std::getenv("SHOW_RECORDS") == nullptr) return;
  va_list values;
  va_start(values, format);
  std::fprintf(stderr, "%c %s: ", level, function);
  std::vfprintf(stderr, format, values);
  std::fputc('\n', stderr);
  va_end(values);
}
int vantrel_set_level(int level) {
  return level;
}
int vantrel_enable_options(int mask) {
  return mask;
}
int vantrel_disable_options(int) {
  return 0;
}
int vantrel_set_file(const char*) {
  return 0;
}
}
