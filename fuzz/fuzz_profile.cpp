// The profile reader: the input is the section and the key, each up to a NUL, then the file.
#include <dlfcn.h>
#include <zelk/Profile.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

const std::string PATH = "the input";
std::string profile;

// Says at the end how much was done.
struct Done {
  long number = 0;
  ~Done() { std::printf("%ld inputs\n", number); }
} done;

std::string UpToNul(const char*& from, const char* end) {
  const char* const begin = from;
  while (from != end && *from != '\0')
    ++from;
  const std::string text(begin, from);
  if (from != end) ++from;
  return text;
}

}  // namespace

// The reader's file is in memory: on disk most of the time would go there.
extern "C" FILE* fopen(const char* path, const char* mode) {
  static const auto real =
      reinterpret_cast<FILE* (*)(const char*, const char*)>(dlsym(RTLD_NEXT, "fopen"));
  return path == PATH ? fmemopen(profile.data(), profile.size(), "r") : real(path, mode);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const char* from = reinterpret_cast<const char*>(data);
  const char* const end = from + size;
  const std::string section = UpToNul(from, end);
  const std::string key = UpToNul(from, end);
  profile.assign(from, end);

  // On the heap, where a byte too many is seen.
  char* const value = static_cast<char*>(std::malloc(256));
  std::memset(value, 'x', 256);
  const int ret = GetProfileString(PATH.c_str(), section.c_str(), key.c_str(), value);
  const bool untouched = std::memchr(value, '\0', 256) == nullptr;
  if (ret != 0 && ret != -1) std::abort();
  if (ret == -1 && !untouched) std::abort();
  if (ret == 0 && profile.find('=') == std::string::npos) std::abort();
  if (!untouched && std::strchr(value, '\n') != nullptr) std::abort();
  std::free(value);
  ++done.number;
  return 0;
}
