// Loads the shared objects that blocks come from.
#pragma once

#include <zelk/Block.h>

#include <string>

namespace zelk {

/// The part of a plug-in's file name that its blocks are called by: without a leading "lib", and
/// without the last plug-in suffix and everything behind it. Empty when the name is no plug-in's.
std::string PluginBaseName(const std::string& soFileName);

/// One reference to a loaded plug-in. Closes it at the end of its life unless released.
/// [any-thread]
class Plugin {
 public:
  /// Opens the file and finds its entry point; what fails is logged for the route.
  Plugin(const std::string& routeName, const std::string& soFileName);
  ~Plugin();
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  /// Null when loading failed.
  CreateBlockFunction CreateBlock() const { return createBlock; }

  /// Hands the reference over to the caller, who closes it.
  void* Release();

 private:
  void* handle = nullptr;
  CreateBlockFunction createBlock = nullptr;
};

}  // namespace zelk
