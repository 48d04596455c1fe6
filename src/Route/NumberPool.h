// Gives out the lowest free number under one name prefix.
#pragma once

#include <cstdint>
#include <new>
#include <set>

namespace zelk {

/// Remembers which numbers are taken, so that finding a free one does not compare names.
class NumberPool {
 public:
  static constexpr std::uint64_t LIMIT = 4294967295;  ///< the first number that is never given

  bool IsFree(std::uint64_t number) const { return number >= next || gaps.count(number) != 0; }

  /// `LIMIT` or more when every number is taken.
  std::uint64_t Lowest() const { return gaps.empty() ? next : *gaps.begin(); }

  void Take(std::uint64_t number) {
    for (; next < number; ++next)
      gaps.insert(next);
    if (number == next) {
      ++next;
    } else {
      gaps.erase(number);
    }
  }

  /// Without memory a number below others is lost: better than an object that cannot be deleted.
  void Release(std::uint64_t number) noexcept {
    if (number + 1 == next) {
      --next;
    } else {
      try {
        gaps.insert(number);
      } catch (const std::bad_alloc&) {
        return;
      }
    }
    while (next > 0 && gaps.erase(next - 1) != 0)
      --next;
  }

 private:
  std::uint64_t next = 0;        // every number from here on is free
  std::set<std::uint64_t> gaps;  // free numbers below `next`
};

}  // namespace zelk
