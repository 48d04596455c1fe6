#include "RingBuffer/RingBuffer.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <thread>

#include "Log.h"

namespace zelk {

static constexpr char LOG_TAG[] = "src/RingBuffer";

namespace {

constexpr long FAILED = -20;

long SlotsFor(long capacity, unsigned long elementSize) {
  if (capacity < 0 || capacity == std::numeric_limits<long>::max()) {
    throw std::length_error("FIFO capacity");
  }
  const long slots = capacity + 1;
  if (elementSize > std::numeric_limits<std::size_t>::max() / static_cast<unsigned long>(slots)) {
    throw std::length_error("FIFO size");
  }
  return slots;
}

// The other side of a stream is often just copying, on a core of its own or waiting for this one:
// to let it run once, and to look again for some 10 microseconds, costs a tenth of what going to
// sleep does. More than one yield would give whole time slices away on a core that is busy with
// other work.
constexpr int LOOKS = 20;
constexpr int PAUSES = 20;  // between two of them
constexpr int TRIES = 50;   // for the mutex, which is held for the time of a copy

void Pause() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield");
#endif
}

/// Takes the mutex without going to sleep, if it is free soon.
class ZELK_TSA(scoped_lockable) BriefLock : public std::unique_lock<std::mutex> {
 public:
  explicit BriefLock(Mutex& mutex) ZELK_TSA(acquire_capability(mutex))
      : std::unique_lock<std::mutex>(mutex, std::defer_lock) {
    for (int turn = 0; turn < TRIES; ++turn) {
      if (try_lock()) return;
      Pause();
    }
    lock();
  }
  ~BriefLock() ZELK_TSA(release_capability()) = default;
};

// In 0 .. divisor - 1, also for a negative value.
long Modulo(long value, long divisor) {
  const long remainder = value % divisor;
  return remainder < 0 ? remainder + divisor : remainder;
}

}  // namespace

DataProducer::~DataProducer() = default;
DataConsumer::~DataConsumer() = default;
FIFO::~FIFO() = default;

RingBuffer::RingBuffer(unsigned int rate, unsigned long elementBytes, long capacity,
                       long initialFill)
    : elementSize(elementBytes),
      slots(SlotsFor(capacity, elementBytes)),
      prefill(std::clamp(initialFill, 0L, capacity)),
      times(rate, static_cast<std::size_t>(slots)) {
  Reset();
}

RingBuffer::~RingBuffer() = default;

int RingBuffer::Consume(const void* src, long count, bool block, long long timestamp) {
  const auto* bytes = static_cast<const unsigned char*>(src);
  const long keepFree = (slots - 1) / 2;
  const long result =
      block ? Write(bytes, count, true, timestamp) : OverWrite(bytes, count, timestamp, keepFree);
  return result < 0 ? static_cast<int>(result) : 0;
}

long RingBuffer::Write(const unsigned char* src, long count, bool block, long long timestamp) {
  BriefLock lock(mutex);
  if (shutDown) return FAILED;
  return Write_l(lock, src, count, block, timestamp);
}

long RingBuffer::OverWrite(const unsigned char* src, long count, long long timestamp,
                           long keepFree) {
  count = std::max(count, 0L);
  long written;
  {
    BriefLock lock(mutex);
    if (shutDown) return FAILED;
    written = Write_l(lock, src, count, false, timestamp);
    if (written < 0 || written == count) return written;

    Put_l(src + Bytes(written), count - written, timestamp);
    // (writeIndex + 1 + keepFree) modulo slots, with no sum that could overflow.
    readIndex = Modulo(Modulo(keepFree, slots) - (slots - 1 - writeIndex), slots);
    dataAvailable.notify_one();
  }
  // After the lock, since a logging library may take its time and the other side is a live stream.
  LOG_V("%s: Ring buffer is full, overwrite %ld samples", name.c_str(), count - written);
  return count;
}

long RingBuffer::Write_l(std::unique_lock<std::mutex>& lock, const unsigned char* src, long count,
                         bool block, long long& timestamp) {
  if (count > 0 && src == nullptr) return FAILED;
  long written = 0;
  while (written < count) {
    if (block && !Await_l(lock, spaceAvailable, &RingBuffer::Free_l)) return FAILED;
    const long n = std::min(count - written, Free_l());
    Put_l(src + Bytes(written), n, timestamp);
    written += n;
    if (!block) break;
  }
  dataAvailable.notify_one();
  return written;
}

// In pieces that end where the ring does. The time is truncated anew after each, as if every piece
// had been a call of its own.
void RingBuffer::Put_l(const unsigned char* src, long count, long long& timestamp) {
  while (count > 0) {
    const long n = std::min(count, slots - writeIndex);
    if (elementSize > 0) std::memcpy(data.data() + Bytes(writeIndex), src, Bytes(n));
    if (times.Kept()) {
      times.Begin(elementsPut, timestamp);
      timestamp = times.Advance(timestamp, static_cast<std::uint64_t>(n));
    }
    elementsPut += static_cast<std::uint64_t>(n);
    src += Bytes(n);
    count -= n;
    writeIndex = n == slots - writeIndex ? 0 : writeIndex + n;
  }
}

int RingBuffer::Produce(void* dst, long count, bool block, long long* timestamp) {
  count = std::max(count, 0L);
  auto* bytes = static_cast<unsigned char*>(dst);
  const long read = Read(bytes, count, block, timestamp);
  if (read < 0) return static_cast<int>(read);
  if (read < count) {
    LOG_V("%s: Not enough data in ring buffer, filling %u samples silence", name.c_str(),
          static_cast<unsigned int>(count - read));
    std::memset(bytes + Bytes(read), 0, Bytes(count - read));
  }
  return 0;
}

long RingBuffer::Read(unsigned char* dst, long count, bool block, long long* timestamp) {
  BriefLock lock(mutex);
  if (shutDown || (count > 0 && dst == nullptr)) return FAILED;
  long read = 0;
  while (read < count) {
    if (block && !Await_l(lock, dataAvailable, &RingBuffer::Count_l)) return FAILED;
    const long n = std::min(count - read, Count_l());
    if (read == 0 && n > 0 && timestamp != nullptr && times.Kept()) {
      *timestamp = TimeOfNext_l();
    }
    Take_l(dst + Bytes(read), n);
    read += n;
    if (!block) break;
  }
  spaceAvailable.notify_one();
  return read;
}

// The silence that the ring began with never got a time.
long long RingBuffer::TimeOfNext_l() {
  const std::uint64_t position = elementsPut - static_cast<std::uint64_t>(Count_l());
  return position < static_cast<std::uint64_t>(prefill) ? -1 : times.At(position);
}

void RingBuffer::Take_l(unsigned char* dst, long count) {
  while (count > 0) {
    const long n = std::min(count, slots - readIndex);
    if (elementSize > 0) std::memcpy(dst, data.data() + Bytes(readIndex), Bytes(n));
    dst += Bytes(n);
    count -= n;
    readIndex = n == slots - readIndex ? 0 : readIndex + n;
  }
}

// The one place where a side waits. False once the ring is shut down: what became available in the
// same moment does not count any more.
bool RingBuffer::Await_l(std::unique_lock<std::mutex>& lock, std::condition_variable& condition,
                         Available available) {
  for (int turn = 0; turn < LOOKS && !shutDown && (this->*available)() == 0; ++turn) {
    lock.unlock();
    if (turn == 0) std::this_thread::yield();
    for (int pause = 0; pause < PAUSES; ++pause)
      Pause();
    lock.lock();
  }
  while (!shutDown && (this->*available)() == 0)
    condition.wait(lock);
  return !shutDown;
}

// One waiter each: a ring has one reading and one writing thread.
void RingBuffer::Shutdown() {
  Lock lock(mutex);
  shutDown = true;
  dataAvailable.notify_one();
  spaceAvailable.notify_one();
}

void RingBuffer::Reset() {
  Lock lock(mutex);
  Reset_l();
}

// Allocates at construction only: later the array has its size already.
void RingBuffer::Reset_l() {
  readIndex = 0;
  writeIndex = prefill;
  data.assign(Bytes(slots), 0);
  times.Clear();
  elementsPut = static_cast<std::uint64_t>(prefill);
}

RingBuffer::Level RingBuffer::CurrentLevel() const {
  Lock lock(mutex);
  return {Count_l(), slots - 1};
}

long RingBuffer::Count_l() const {
  const long distance = writeIndex - readIndex;
  return distance < 0 ? distance + slots : distance;
}

long RingBuffer::Free_l() const {
  return slots - 1 - Count_l();
}

std::size_t RingBuffer::Bytes(long elements) const {
  return static_cast<std::size_t>(elements) * elementSize;
}

}  // namespace zelk
