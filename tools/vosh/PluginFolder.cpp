#include "PluginFolder.h"

#include <cstdint>
#include <filesystem>
#ifdef __APPLE__
#include <mach-o/dyld.h>
#endif

namespace vosh {

namespace {

std::filesystem::path ProgramFile() {
  std::error_code error;
#ifdef __APPLE__
  char path[4096];
  std::uint32_t size = sizeof path;
  if (_NSGetExecutablePath(path, &size) != 0) return {};
  return std::filesystem::canonical(path, error);
#else
  return std::filesystem::read_symlink("/proc/self/exe", error);
#endif
}

}  // namespace

std::vector<std::string> PluginFolders() {
  const std::filesystem::path root = ProgramFile().parent_path().parent_path();
  std::vector<std::string> folders;
  // VOSH_LIBDIR is where an install puts libraries below its root; a build tree uses "lib".
  for (const char* libraries : {"lib", VOSH_LIBDIR}) {
    std::error_code error;
    const std::filesystem::path folder = root / libraries / "zelk";
    const bool known = !folders.empty() && folders[0] == folder;
    if (!known && std::filesystem::is_directory(folder, error)) folders.push_back(folder);
  }
  return folders;
}

}  // namespace vosh
