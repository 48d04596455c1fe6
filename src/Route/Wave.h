// The blocks of one wave of a frame.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <vector>

namespace zelk {

class Block;

/// A set of blocks in address order. Room is made when the graph is edited, so that a frame never
/// allocates. [route-thread]
class Wave {
 public:
  /// Needed before as many blocks are added. By doubling: exactly what is needed would be copied
  /// once per block. Throws std::bad_alloc.
  void MakeRoomFor(std::size_t blocks) {
    if (room.size() < blocks) room.resize(std::max(blocks, 2 * room.size()));
  }

  bool IsEmpty() const { return count == 0; }
  std::size_t Size() const { return count; }
  void Clear() { count = 0; }

  Block* const* begin() const { return room.data(); }
  Block* const* end() const { return room.data() + count; }

  /// Only a block behind all that are here.
  void Append(Block* block) { room[count++] = block; }

  /// Most blocks arrive in order, once each.
  void Add(Block* block) {
    if (count == 0 || std::less<>()(room[count - 1], block)) {
      Append(block);
    } else {
      Insert(block);
    }
  }

 private:
  void Insert(Block* block) {
    Block** const last = room.data() + count;
    Block** const place = std::lower_bound(room.data(), last, block, std::less<>());
    if (*place == block) return;  // never behind the last: this one is not behind all
    std::move_backward(place, last, last + 1);
    *place = block;
    ++count;
  }

  std::vector<Block*> room;
  std::size_t count = 0;
};

}  // namespace zelk
