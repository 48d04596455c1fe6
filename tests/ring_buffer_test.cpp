#include "RingBuffer/RingBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/LogRecorder.h"

namespace {

using zelk::RingBuffer;
using Ints = std::vector<std::int32_t>;

struct Named : RingBuffer {
  Named(unsigned int rate, long capacity, long held)
      : RingBuffer(rate, sizeof(std::int32_t), capacity, held) {
    name = "fifo_3";
    test::TakeTrace();
  }

  int Put(const Ints& values, bool block = false, long long time = 0) {
    return Consume(values.data(), static_cast<long>(values.size()), block, time);
  }
  Ints Get(long count, long long* time = nullptr) {
    Ints values(static_cast<std::size_t>(count), 99);
    EXPECT_EQ(Produce(values.data(), count, false, time), 0);
    return values;
  }
  long Fill() const { return CurrentLevel().fill; }
};

Ints Numbers(std::size_t count, std::int32_t first = 1) {
  Ints values(count);
  std::iota(values.begin(), values.end(), first);
  return values;
}

const unsigned char* Bytes(const Ints& values) {
  return reinterpret_cast<const unsigned char*>(values.data());
}

TEST(RingBuffer, StartsAndRestartsWithItsPrefillOfZeros) {
  Named ring(48000, 1024, 256);
  Ints values(300, 99);
  long long time = 5;
  auto* dst = reinterpret_cast<unsigned char*>(values.data());
  EXPECT_EQ(ring.Read(dst, 300, false, &time), 256);
  EXPECT_EQ(time, -1);
  EXPECT_EQ(values[255], 0);
  EXPECT_EQ(values[256], 99);

  ring.Put(Numbers(2000));
  ring.Reset();
  EXPECT_EQ(ring.Fill(), 256);
  EXPECT_EQ(ring.Get(1, &time), Ints{0});
  EXPECT_EQ(time, -1);

  EXPECT_EQ(Named(0, 10, 11).Fill(), 10);
  EXPECT_EQ(Named(0, 10, -1).Fill(), 0);
  EXPECT_EQ(Named(0, 10, 3).CurrentLevel().capacity, 10);
}

TEST(RingBuffer, OverwriteKeepsTheNewestHalf) {
  Named ring(0, 1024, 0);
  EXPECT_EQ(ring.Put(Numbers(1500)), 0);
  EXPECT_EQ(test::TakeTrace(),
            std::vector<std::string>{"V src/RingBuffer OverWrite: fifo_3: Ring buffer is "
                                     "full, overwrite 476 samples"});
  EXPECT_EQ(ring.Fill(), 512);
  EXPECT_EQ(ring.Get(512), Numbers(512, 989));

  Named odd(0, 5, 0);
  odd.Put(Numbers(23));  // several times around
  EXPECT_EQ(odd.Get(3), (Ints{21, 22, 23}));
  EXPECT_EQ(odd.OverWrite(Bytes(Numbers(7)), 7, 0, 0), 7);
  EXPECT_EQ(odd.Get(5), (Ints{3, 4, 5, 6, 7}));
  EXPECT_EQ(odd.OverWrite(Bytes(Numbers(7)), 7, 0, 5), 7);
  EXPECT_EQ(odd.Fill(), 0);
}

TEST(RingBuffer, FillsWhatIsMissingWithSilence) {
  Named ring(48000, 8, 0);
  ring.Put({1, 2}, false, 70);
  long long time = 5;
  EXPECT_EQ(ring.Get(5, &time), (Ints{1, 2, 0, 0, 0}));
  EXPECT_EQ(time, 70);
  EXPECT_EQ(test::TakeTrace(),
            std::vector<std::string>{"V src/RingBuffer Produce: fifo_3: Not enough data in "
                                     "ring buffer, filling 3 samples silence"});
  EXPECT_EQ(ring.Get(1, &time), Ints{0});
  EXPECT_EQ(time, 70);
}

TEST(RingBuffer, WritesOnlyWhatFitsWithoutBlocking) {
  Named ring(0, 4, 0);
  EXPECT_EQ(ring.Write(Bytes(Numbers(6)), 6, false, 0), 4);
  EXPECT_EQ(ring.Write(Bytes(Numbers(6)), 6, false, 0), 0);
  EXPECT_EQ(ring.Get(3), (Ints{1, 2, 3}));
  EXPECT_EQ(ring.Write(Bytes(Ints{7, 8}), 2, true, 0), 2);
  EXPECT_EQ(ring.Get(3), (Ints{4, 7, 8}));
}

TEST(RingBuffer, TimesEveryElementByThePlainFormula) {
  const long capacity = 700;  // runs cross the end of the ring in every way
  for (unsigned int rate : {1u, 3u, 7u, 999u, 8000u, 11025u, 22050u, 44100u, 48000u, 96000u,
                            352800u, 999983u, 1000000u, 1000003u, 2147483648u, 4294967295u}) {
    Named ring(rate, capacity, 0);
    long slot = 0, count = 1;
    for (long long time : {0LL, -1'000'000LL, 1'753'000'000'123'457LL}) {
      for (int run = 0; run < 12; ++run, count = count * 7 % 701 + 1) {
        if (count > capacity) count = capacity;
        ASSERT_EQ(ring.Put(Ints(static_cast<std::size_t>(count)), false, time), 0);
        long long expected = time;
        for (long k = 0, piece = 0; k < count; ++k, ++piece) {
          long long stored = 0;
          ring.Get(1, &stored);
          ASSERT_EQ(stored, expected + piece * 1'000'000 / rate) << rate << " " << k;
          if (++slot == capacity + 1) {  // the end of the ring: truncated anew
            expected += (piece + 1) * 1'000'000 / rate;
            piece = -1;
            slot = 0;
          }
        }
      }
    }
  }
}

TEST(RingBuffer, ContinuesTheTimeWhereItOverwrites) {
  Named ring(44100, 4, 0);
  ring.Put(Numbers(9), false, 1000);  // slots 0-3 and 4, then 0-3: pieces of 4, 1 and 4
  long long time = 0;
  EXPECT_EQ(ring.Get(1, &time), Ints{8});
  EXPECT_EQ(time, 1000 + 90 + 22 + 45);

  ring.Put(Numbers(2), false, std::numeric_limits<long long>::max());  // wraps, and that is all
  EXPECT_EQ(ring.Get(2), (Ints{9, 1}));
  ring.Get(1, &time);
  EXPECT_EQ(time, std::numeric_limits<long long>::min() + 21);
}

TEST(RingBuffer, KeepsTheTimesOfManyTransfersOfOneElement) {
  Named ring(48000, 4, 0);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(ring.OverWrite(Bytes(Ints{i}), 1, 1000 - i, 0), 1);
    if (i % 10 != 9) continue;
    for (int k = 3; k >= (i == 99 ? 0 : 2); --k) {
      long long time = 0;
      EXPECT_EQ(ring.Get(1, &time), Ints{i - k});
      EXPECT_EQ(time, 1000 - (i - k));
    }
  }
}

TEST(RingBuffer, TakesOddSizesAndRefusesImpossibleOnes) {
  Named none(48000, 0, 0);
  EXPECT_EQ(none.Put(Numbers(3)), 0);
  EXPECT_EQ(none.Get(2), (Ints{0, 0}));
  EXPECT_EQ(none.CurrentLevel().capacity, 0);

  Named ring(0, 4, 2);
  EXPECT_EQ(ring.Consume(nullptr, -3, true, 0), 0);
  EXPECT_EQ(ring.Produce(nullptr, -3, true, nullptr), 0);
  EXPECT_EQ(ring.Consume(nullptr, 1, false, 0), -20);
  EXPECT_EQ(ring.Produce(nullptr, 1, false, nullptr), -20);
  EXPECT_EQ(ring.Fill(), 2);
  long long time = 7;
  EXPECT_EQ(ring.Get(1, &time), Ints{0});
  EXPECT_EQ(time, 7);  // a ring that keeps no times

  RingBuffer empty(48000, 0, 4, 0);
  EXPECT_EQ(empty.Consume("", 3, false, 0), 0);
  EXPECT_EQ(empty.CurrentLevel().fill, 3);
  EXPECT_EQ(empty.Produce(&time, 2, false, nullptr), 0);
  EXPECT_EQ(empty.CurrentLevel().fill, 1);

  const long most = std::numeric_limits<long>::max();
  EXPECT_THROW(RingBuffer(0, 4, -1, 0), std::length_error);
  EXPECT_THROW(RingBuffer(0, 1, most, 0), std::length_error);
  EXPECT_THROW(RingBuffer(0, 4, most - 1, 0), std::length_error);
}

TEST(RingBuffer, RefusesEverythingOnceShutDown) {
  Named ring(48000, 8, 4);
  ring.Shutdown();
  ring.Reset();
  Ints values(4, 99);
  auto* dst = reinterpret_cast<unsigned char*>(values.data());
  long long time = 5;
  for (bool block : {false, true}) {
    EXPECT_EQ(ring.Produce(dst, 4, block, &time), -20);
    EXPECT_EQ(ring.Consume(dst, 4, block, 0), -20);
    EXPECT_EQ(ring.Read(dst, 0, block, &time), -20);
    EXPECT_EQ(ring.Write(dst, 0, block, 0), -20);
  }
  EXPECT_EQ(ring.OverWrite(dst, 0, 0, 0), -20);
  EXPECT_EQ(values, Ints(4, 99));
  EXPECT_EQ(time, 5);
  EXPECT_TRUE(test::TakeTrace().empty());
}

TEST(RingBuffer, WakesABlockedReaderAndABlockedWriterAtShutdown) {
  Named empty(0, 4, 0), full(0, 4, 4);
  int read = 0, written = 0;
  std::thread reader([&] {
    Ints values(3);
    read = empty.Produce(values.data(), 3, true, nullptr);
  });
  std::thread writer([&] { written = full.Put(Numbers(2), true); });
  const auto bothSleep = [] { std::this_thread::sleep_for(std::chrono::milliseconds(5)); };
  bothSleep();
  empty.Put({1});  // not enough for the reader, which takes it and waits again
  full.Get(1);
  while (empty.Fill() != 0 || full.Fill() != 4)
    std::this_thread::yield();
  bothSleep();
  empty.Shutdown();
  full.Shutdown();
  reader.join();
  writer.join();
  EXPECT_EQ(read, -20);
  EXPECT_EQ(written, -20);
}

TEST(RingBuffer, StreamsInOrderBetweenTwoThreads) {
  Named ring(1'000'000, 64, 0);  // the time of an element is its number
  constexpr std::int32_t TOTAL = 64 * 700;
  std::thread writer([&] {
    for (std::int32_t next = 0, n = 1; next < TOTAL; next += n, n = n * 5 % 61 + 1) {
      n = std::min(n, TOTAL - next);
      ring.Put(Numbers(static_cast<std::size_t>(n), next), true, next);
    }
  });
  bool inOrder = true;
  for (std::int32_t next = 0; next < TOTAL; next += 7) {
    Ints values(7);
    long long time = -2;
    EXPECT_EQ(ring.Produce(values.data(), 7, true, &time), 0);
    inOrder = inOrder && values == Numbers(7, next) && time == next;
  }
  writer.join();
  EXPECT_TRUE(inOrder);
  EXPECT_EQ(ring.Fill(), 0);
}

}  // namespace
