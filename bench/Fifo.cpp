// 480 elements of 4 bytes written and read: in turns on one thread, and as a stream from a writing
// to a reading thread through a ring that holds four transfers.
#include <zelk/Zelk.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

#include "Bench.h"

#ifdef BENCH_JACK
#include <jack/ringbuffer.h>
#endif
#ifdef BENCH_BOOST
#include <boost/lockfree/spsc_queue.hpp>
#endif

using namespace bench;

namespace {

constexpr std::size_t COUNT = 480;
constexpr std::size_t SLOTS = 4 * COUNT;
using Element = std::uint32_t;
using Transfer = std::array<Element, COUNT>;

// A side that cannot go on lets others run: cores may be fewer than threads.
template <typename Try>
void Insist(Try&& once) {
  while (!once())
    std::this_thread::yield();
}

// Two copies and nothing else; for a stream, whole transfers behind a pair of counters.
class Copies {
 public:
  void Write(const Transfer& from) {
    Insist([&] { return written - read.load(std::memory_order_acquire) < 4; });
    slots[written % 4] = from;
    written.store(written + 1, std::memory_order_release);
  }
  void Read(Transfer& to) {
    Insist([&] { return written.load(std::memory_order_acquire) != read; });
    to = slots[read % 4];
    read.store(read + 1, std::memory_order_release);
  }

 private:
  std::array<Transfer, 4> slots{};
  alignas(64) std::atomic<std::size_t> written{0};
  alignas(64) std::atomic<std::size_t> read{0};
};

// As a textbook has it.
class LockedRing {
 public:
  void Write(const Transfer& from) {
    std::unique_lock lock(mutex);
    space.wait(lock, [&] { return SLOTS - (end - begin) >= COUNT; });
    Copy(end, [&](Element* slot, std::size_t done, std::size_t n) {
      std::memcpy(slot, from.data() + done, n * sizeof(Element));
    });
    data.notify_one();
  }
  void Read(Transfer& to) {
    std::unique_lock lock(mutex);
    data.wait(lock, [&] { return end - begin >= COUNT; });
    Copy(begin, [&](Element* slot, std::size_t done, std::size_t n) {
      std::memcpy(to.data() + done, slot, n * sizeof(Element));
    });
    space.notify_one();
  }

 private:
  template <typename Part>
  void Copy(std::size_t& position, Part&& part) {
    for (std::size_t done = 0; done < COUNT;) {
      const std::size_t at = position % SLOTS;
      const std::size_t n = std::min(COUNT - done, SLOTS - at);
      part(&elements[at], done, n);
      done += n;
      position += n;
    }
  }

  std::mutex mutex;
  std::condition_variable space;
  std::condition_variable data;
  std::size_t begin = 0;
  std::size_t end = 0;
  std::array<Element, SLOTS> elements{};
};

class ZelkFifo {
 public:
  explicit ZelkFifo(unsigned int rate)
      : fifo(zelk::Zelk::Instance()->NewFIFO(rate, sizeof(Element), SLOTS, 0)) {}
  ~ZelkFifo() {
    fifo->Shutdown();
    zelk::Zelk::Instance()->DeleteFIFO(fifo);
  }
  void Write(const Transfer& from) {
    fifo->Consume(from.data(), COUNT, true, time);
    time += 10'000;
  }
  void Read(Transfer& to) {
    long long stamp = 0;
    fifo->Produce(to.data(), COUNT, true, &stamp);
  }

 private:
  zelk::FIFO* fifo;
  long long time = 0;
};

#ifdef BENCH_JACK
class JackRing {
 public:
  ~JackRing() { jack_ringbuffer_free(ring); }
  void Write(const Transfer& from) {
    Insist([&] { return jack_ringbuffer_write_space(ring) >= sizeof from; });
    jack_ringbuffer_write(ring, reinterpret_cast<const char*>(from.data()), sizeof from);
  }
  void Read(Transfer& to) {
    Insist([&] { return jack_ringbuffer_read_space(ring) >= sizeof to; });
    jack_ringbuffer_read(ring, reinterpret_cast<char*>(to.data()), sizeof to);
  }

 private:
  jack_ringbuffer_t* ring = jack_ringbuffer_create(SLOTS * sizeof(Element));
};
#endif

#ifdef BENCH_BOOST
class BoostQueue {
 public:
  void Write(const Transfer& from) {
    Insist([&] { return queue.write_available() >= COUNT; });
    queue.push(from.data(), COUNT);
  }
  void Read(Transfer& to) {
    Insist([&] { return queue.read_available() >= COUNT; });
    queue.pop(to.data(), COUNT);
  }

 private:
  boost::lockfree::spsc_queue<Element, boost::lockfree::capacity<SLOTS>> queue;
};
#endif

template <typename Ring>
Work InTurns(std::shared_ptr<Ring> ring) {
  auto from = std::make_shared<Transfer>();
  auto to = std::make_shared<Transfer>();
  return OnThisThread([ring, from, to] {
    ring->Write(*from);
    ring->Read(*to);
  });
}

template <typename Ring>
Work AsStream(std::shared_ptr<Ring> ring) {
  return [ring](std::int64_t count) {
    Transfer from{};
    std::atomic<bool> ready{false};
    std::thread reader([&] {
      Transfer to{};
      ready = true;
      for (std::int64_t i = 0; i < count; ++i)
        ring->Read(to);
    });
    Insist([&] { return ready.load(); });
    const double begin = Now();
    for (std::int64_t i = 0; i < count; ++i)
      ring->Write(from);
    reader.join();
    return Slice{Now() - begin};
  };
}

template <typename Ring, typename... Args>
void AddRing(const std::string& name, Args... args) {
  Add("fifo/" + name, [args...] { return InTurns(std::make_shared<Ring>(args...)); });
  Add("fifo-stream/" + name, [args...] { return AsStream(std::make_shared<Ring>(args...)); });
}

}  // namespace

void AddFifo() {
  AddRing<Copies>("memcpy pair");
#ifdef BENCH_JACK
  AddRing<JackRing>("JACK ring");
#endif
#ifdef BENCH_BOOST
  AddRing<BoostQueue>("Boost spsc_queue");
#endif
  AddRing<LockedRing>("plain locked ring");
  AddRing<ZelkFifo>("zelk", 0u);
  AddRing<ZelkFifo>("zelk with times", 48000u);
}
