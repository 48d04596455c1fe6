// The profile reader: the input is the section and the key, each up to a NUL, then the file.
#include <sys/mman.h>
#include <unistd.h>
#include <zelk/Profile.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// Says at the end how much was done.
struct Done {
  long number = 0;
  ~Done() { std::printf("%ld inputs\n", number); }
} done;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int file = memfd_create("profile", 0);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string section = text.c_str();
  const std::string rest = section.size() < size ? text.substr(section.size() + 1) : std::string();
  const std::string key = rest.c_str();
  const std::string profile = key.size() < rest.size() ? rest.substr(key.size() + 1) : rest;
  if (ftruncate(file, 0) != 0 ||
      pwrite(file, profile.data(), profile.size(), 0) != static_cast<ssize_t>(profile.size())) {
    std::abort();
  }

  // On the heap, where a byte too many is seen.
  char* const value = static_cast<char*>(std::malloc(256));
  std::memset(value, 'x', 256);
  const int ret = GetProfileString(path.c_str(), section.c_str(), key.c_str(), value);
  const bool untouched = std::memchr(value, '\0', 256) == nullptr;
  if (ret != 0 && ret != -1) std::abort();
  if (ret == -1 && !untouched) std::abort();
  if (ret == 0 && profile.find('=') == std::string::npos) std::abort();
  if (!untouched && std::strchr(value, '\n') != nullptr) std::abort();
  std::free(value);
  ++done.number;
  return 0;
}
