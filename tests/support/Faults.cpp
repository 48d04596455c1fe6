#include "support/Faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "support/Allocator.h"

// A sanitizer asks for what comes after itself, before anything else can run.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#define IS_SANITIZED 1
#elif defined(__has_feature)
#define IS_SANITIZED (__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
#else
#define IS_SANITIZED 0
#endif

namespace test {
namespace {

// No call here may allocate.
char faulty[32] = "";
std::atomic<long> left{0};
std::atomic<int> errorOfFault{0};
std::atomic<int> strayCloses{0};

bool Fails(const char* function) {
  if (left.load(std::memory_order_acquire) <= 0 || std::strcmp(function, faulty) != 0) return false;
  if (left.fetch_sub(1) != 1) return false;
  errno = errorOfFault;
  return true;
}

// By version, since the name alone is this file's own; the versions are those of glibc's ports.
void* RealDlsym(void* handle, const char* name) {
  static const auto real = [] {
    void* found = nullptr;
    for (const char* version : {"GLIBC_2.34", "GLIBC_2.2.5", "GLIBC_2.17", "GLIBC_2.27"}) {
      if (found == nullptr) found = dlvsym(RTLD_NEXT, "dlsym", version);
    }
    return reinterpret_cast<decltype(&dlsym)>(found);
  }();
  return real(handle, name);
}

template <typename Function>
Function Next(Function, const char* name) {
  return reinterpret_cast<Function>(RealDlsym(RTLD_NEXT, name));
}

}  // namespace

void SetFault(const std::string& function, long nth, int error) {
  mayAllocate = [](std::size_t) { return !Fails("new"); };
  left = 0;
  function.copy(faulty, sizeof faulty - 1);
  faulty[function.size()] = '\0';
  errorOfFault = error;
  left.store(nth, std::memory_order_release);
}

bool ClearFault() {
  return left.exchange(0) <= 0;
}

int StrayCloses() {
  return strayCloses;
}

}  // namespace test

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
FAULTY_CALL(int, dup3, -1, (int from, int to, int flags), (from, to, flags), noexcept)
FAULTY_CALL(FILE*, fopen, nullptr, (const char* path, const char* mode), (path, mode))
FAULTY_CALL(size_t, fwrite, 0, (const void* b, size_t s, size_t n, FILE* f), (b, s, n, f))
FAULTY_CALL(char*, fgets, nullptr, (char* s, int n, FILE* f), (s, n, f))
FAULTY_CALL(int, fclose, (real(file), EOF), (FILE * file), (file))
FAULTY_CALL(void*, dlopen, nullptr, (const char* path, int mode), (path, mode), noexcept)
FAULTY_CALL(int, dlclose, (real(handle), -1), (void* handle), (handle), noexcept)
#if !defined(__SANITIZE_THREAD__)
FAULTY_CALL(int, pthread_create, test::errorOfFault.load(),
            (pthread_t * t, const pthread_attr_t* a, void* (*f)(void*), void* p), (t, a, f, p),
            noexcept)
#endif
#if !IS_SANITIZED
extern "C" [[gnu::visibility("default")]] void* dlsym(void* handle, const char* name) noexcept {
  return test::Fails("dlsym") ? nullptr : test::RealDlsym(handle, name);
}
#endif

extern "C" [[gnu::visibility("default")]] int close(int fd) {
  static const auto real = test::Next(&close, "close");
  const bool fails = test::Fails("close");
  const int error = errno;
  const int result = real(fd);
  if (result < 0 && errno == EBADF) ++test::strayCloses;
  if (!fails) return result;
  errno = error;
  return -1;
}

// Those that take what they need: a third argument that is not there is never looked at.
#define FAULTY_VARIADIC(name, parameters, first, second)                                \
  extern "C" [[gnu::visibility("default")]] int name parameters {                       \
    using Real = int (*)(decltype(first), int, ...);                                    \
    static const auto real = reinterpret_cast<Real>(test::RealDlsym(RTLD_NEXT, #name)); \
    va_list values;                                                                     \
    va_start(values, second);                                                           \
    const long third = va_arg(values, long);                                            \
    va_end(values);                                                                     \
    return test::Fails(#name) ? -1 : real(first, second, third);                        \
  }
FAULTY_VARIADIC(fcntl, (int fd, int command, ...), fd, command)
FAULTY_VARIADIC(open, (const char* path, int flags, ...), path, flags)
