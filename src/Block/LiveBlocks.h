// Which blocks exist in this process.
#pragma once

#include <string>

namespace zelk {

class Block;

/// Registers every block from its constructor to its destructor, so that a pointer handed in by a
/// client can be told from a stale or wild one before it is followed. [any-thread]
class LiveBlocks {
 public:
  static void Add(const Block* block);
  static void Remove(const Block* block) noexcept;

  /// The name stored in the block object, or "?" when there is no such object.
  static std::string NameOf(const Block* block);

  /// Where the text of that name lies, or null when there is no such object.
  static const void* NameAddressOf(const Block* block);
};

}  // namespace zelk
