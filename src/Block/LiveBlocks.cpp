#include "Block/LiveBlocks.h"

#include <zelk/Block.h>

#include <unordered_set>

#include "Mutex.h"

namespace zelk {

namespace {

struct Registry {
  Mutex mutex;
  std::unordered_set<const Block*> blocks ZELK_GUARDED_BY(mutex);
};

// Never destroyed: blocks may die after the static destructors have begun.
Registry& TheRegistry() {
  static Registry* const registry = new Registry;
  return *registry;
}

}  // namespace

void LiveBlocks::Add(const Block* block) {
  Registry& registry = TheRegistry();
  Lock lock(registry.mutex);
  registry.blocks.insert(block);
}

void LiveBlocks::Remove(const Block* block) noexcept {
  Registry& registry = TheRegistry();
  Lock lock(registry.mutex);
  registry.blocks.erase(block);
}

std::string LiveBlocks::NameOf(const Block* block) {
  Registry& registry = TheRegistry();
  Lock lock(registry.mutex);
  return registry.blocks.count(block) != 0 ? block->name : "?";
}

const void* LiveBlocks::NameAddressOf(const Block* block) {
  Registry& registry = TheRegistry();
  Lock lock(registry.mutex);
  return registry.blocks.count(block) != 0 ? block->name.c_str() : nullptr;
}

}  // namespace zelk
