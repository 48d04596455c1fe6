#include "Route/PluginLoader.h"

#include <dlfcn.h>

#include "Log.h"

namespace zelk {

static constexpr char LOG_TAG[] = "src/Route";

namespace {

// Both are plug-in suffixes everywhere, so that one script works everywhere; the platform's own
// first.
#if defined(__APPLE__)
constexpr const char* SUFFIXES[] = {".dylib", ".so"};
#else
constexpr const char* SUFFIXES[] = {".so", ".dylib"};
#endif

}  // namespace

std::string PluginBaseName(const std::string& soFileName) {
  for (const char* suffix : SUFFIXES) {
    const std::size_t end = soFileName.rfind(suffix);
    if (end == std::string::npos) continue;
    const std::size_t begin = soFileName.compare(0, 3, "lib") == 0 ? 3 : 0;
    return end > begin ? soFileName.substr(begin, end - begin) : std::string();
  }
  return {};
}

Plugin::Plugin(const std::string& routeName, const std::string& soFileName)
    : handle(dlopen(soFileName.c_str(), RTLD_LAZY)) {
  if (handle == nullptr) {
    ZELK_LOG_AS('E', "NewBlock_l", "%s: Can't open %s", routeName.c_str(), soFileName.c_str());
    return;
  }
  createBlock = reinterpret_cast<CreateBlockFunction>(dlsym(handle, "CreateBlock"));
  if (createBlock == nullptr) {
    ZELK_LOG_AS('E', "NewBlock_l", "%s: Can't find 'CreateBlock' function in %s", routeName.c_str(),
                soFileName.c_str());
  }
}

Plugin::~Plugin() {
  if (handle != nullptr) dlclose(handle);
}

void* Plugin::Release() {
  void* released = handle;
  handle = nullptr;
  return released;
}

}  // namespace zelk
