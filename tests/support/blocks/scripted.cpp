// Hands the making of the block to the test executable, where its script is.
#include <dlfcn.h>
#include <zelk/Block.h>

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  const auto create =
      reinterpret_cast<zelk::CreateBlockFunction>(dlsym(RTLD_DEFAULT, "CreateScriptedBlock"));
  return create == nullptr ? nullptr : create(first, last, args);
}
