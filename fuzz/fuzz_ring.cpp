// The ring buffer against a queue of elements. Two bytes of input are one operation.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <vector>

#include "RingBuffer/RingBuffer.h"

namespace {

void Require(bool good) {
  if (!good) std::abort();
}

/// Elements of three bytes: their number, so that a byte out of place shows.
class Model {
 public:
  Model(long ringCapacity, long ringPrefill, unsigned int rate)
      : capacity(ringCapacity), prefill(ringPrefill), ring(rate, 3, capacity, prefill) {
    Reset();
  }

  void Do(unsigned operation, long count) {
    std::vector<unsigned char> bytes(static_cast<std::size_t>(count) * 3, 0xEE);
    long long time = -5;
    const long held = static_cast<long>(elements.size());
    switch (operation % 6) {
      case 0: {  // Produce pads with zeros
        const int ret = ring.Produce(bytes.data(), count, false, &time);
        Require(ret == (open ? 0 : -20));
        if (open) Take(bytes, count, std::min(count, held));
        break;
      }
      case 1: {
        const long ret = ring.Read(bytes.data(), count, false, &time);
        Require(ret == (open ? std::min(count, held) : -20));
        if (open) Take(bytes, ret, ret);
        break;
      }
      case 2: {
        Fill(bytes);
        const long ret = ring.Write(bytes.data(), count, false, next);
        Require(ret == (open ? std::min(count, capacity - held) : -20));
        if (open) Put(bytes, ret);
        break;
      }
      case 3: {  // keeps the newest half when it overflows
        Fill(bytes);
        Require(ring.Consume(bytes.data(), count, false, next) == (open ? 0 : -20));
        if (!open) break;
        Put(bytes, count);
        if (held + count > capacity) Keep(capacity - capacity / 2);
        break;
      }
      case 4:
        ring.Reset();
        Reset();
        break;
      default:
        if (count % 16 != 7) break;
        ring.Shutdown();
        open = false;
    }
    Require(ring.CurrentLevel().fill == static_cast<long>(elements.size()));
    Require(ring.CurrentLevel().capacity == capacity);
  }

 private:
  void Fill(std::vector<unsigned char>& bytes) {
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
      ++next;
      bytes[i] = static_cast<unsigned char>(next);
      bytes[i + 1] = static_cast<unsigned char>(next >> 8);
      bytes[i + 2] = static_cast<unsigned char>(next >> 16);
    }
  }
  static std::uint32_t Element(const std::vector<unsigned char>& bytes, long index) {
    const auto at = static_cast<std::size_t>(index) * 3;
    return bytes[at] | static_cast<std::uint32_t>(bytes[at + 1]) << 8 |
           static_cast<std::uint32_t>(bytes[at + 2]) << 16;
  }
  void Put(const std::vector<unsigned char>& bytes, long count) {
    for (long i = 0; i < count; ++i)
      elements.push_back(Element(bytes, i));
  }
  void Take(const std::vector<unsigned char>& bytes, long delivered, long read) {
    for (long i = 0; i < delivered; ++i)
      Require(Element(bytes, i) == (i < read ? elements[static_cast<std::size_t>(i)] : 0));
    elements.erase(elements.begin(), elements.begin() + read);
  }
  void Keep(long count) { elements.erase(elements.begin(), elements.end() - count); }
  void Reset() { elements.assign(static_cast<std::size_t>(std::min(prefill, capacity)), 0); }

  const long capacity;
  const long prefill;
  zelk::RingBuffer ring;
  std::deque<std::uint32_t> elements;
  std::uint32_t next = 0;
  bool open = true;
};

// Says at the end how much was done.
struct Done {
  long number = 0;
  ~Done() { std::printf("%ld operations\n", number); }
} done;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3) return 0;
  Model model(data[0], data[1], data[2] % 3 * 24000u);
  for (std::size_t i = 3; i + 1 < size; i += 2) {
    model.Do(data[i], data[i + 1] * 2L);
    ++done.number;
  }
  return 0;
}
