// The one implementation of FIFO: a ring of equal-sized elements behind a mutex.
#pragma once

#include <zelk/FIFO.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "Mutex.h"
#include "RingBuffer/TimeRuns.h"

namespace zelk {

/// Counts are in elements. One slot of the ring always stays empty, so that a full ring differs
/// from an empty one. Each call notifies the other side once, when it ends, not while it waits: a
/// blocking transfer that exceeds the capacity needs the other side never to block meanwhile.
///
/// -20 is the only error: the ring is shut down, or a buffer is null where elements are to move.
/// A negative count is 0.
class RingBuffer : public FIFO {
 public:
  struct Level {
    long fill;
    long capacity;
  };

  /// Starts open, holding `prefill` zero elements: at least 0, at most `capacity`. A `rate` of 0
  /// keeps no times. Throws std::length_error when the capacity is negative or sizes overflow,
  /// std::bad_alloc when memory ends.
  RingBuffer(unsigned int rate, unsigned long elementSize, long capacity, long prefill);
  ~RingBuffer() override;

  /// See FIFO. What a call without `block` lacks is logged and filled with zeros. [any-thread, one
  /// reader at a time]
  int Produce(void* dst, long count, bool block, long long* timestamp) override;
  /// See FIFO. Without `block` it overwrites, keeping half of the ring free. [any-thread, one
  /// writer at a time]
  int Consume(const void* src, long count, bool block, long long timestamp) override;
  /// See FIFO. [any-thread]
  void Shutdown() override;

  /// Reads what is held, up to `count`, or with `block` exactly `count`; elements that a blocking
  /// call read before a shutdown are lost. `timestamp`, unless null, receives the time of the first
  /// element, if one is read and the ring keeps times. Returns the number read, or -20.
  long Read(unsigned char* dst, long count, bool block, long long* timestamp);

  /// Writes what there is space for, up to `count`, or with `block` exactly `count`. Returns the
  /// number written, or -20.
  long Write(const unsigned char* src, long count, bool block, long long timestamp);
  /// The same inside a lock, for a ring that is not shut down; `timestamp` advances to the time
  /// after the last element written.
  long Write_l(std::unique_lock<std::mutex>& lock, const unsigned char* src, long count, bool block,
               long long& timestamp) ZELK_REQUIRES(mutex);

  /// Writes all `count` elements. If they do not fit, the oldest are dropped, and so many more that
  /// `keepFree` are free afterwards. Returns `count`, or -20.
  long OverWrite(const unsigned char* src, long count, long long timestamp, long keepFree);

  /// Puts the ring back to its initial contents; a shut-down ring stays shut down. Wakes nobody.
  void Reset();
  void Reset_l() ZELK_REQUIRES(mutex);

  /// How full the ring is, at one moment. [any-thread]
  Level CurrentLevel() const;
  long Count_l() const ZELK_REQUIRES(mutex);

  /// Guards everything that changes; public for callers of the `_l` operations.
  mutable Mutex mutex;

 private:
  using Available = long (RingBuffer::*)() const;

  bool Await_l(std::unique_lock<std::mutex>& lock, std::condition_variable& condition,
               Available available) ZELK_REQUIRES(mutex);
  long Free_l() const ZELK_REQUIRES(mutex);
  void Put_l(const unsigned char* src, long count, long long& timestamp) ZELK_REQUIRES(mutex);
  long long TimeOfNext_l() ZELK_REQUIRES(mutex);
  void Take_l(unsigned char* dst, long count) ZELK_REQUIRES(mutex);
  std::size_t Bytes(long elements) const;

  // Constant after construction.
  const unsigned long elementSize;
  const long slots;  // the capacity and the one that stays empty
  const long prefill;

  // Guarded by the mutex.
  std::vector<unsigned char> data ZELK_GUARDED_BY(mutex);
  TimeRuns times ZELK_GUARDED_BY(mutex);
  std::uint64_t elementsPut ZELK_GUARDED_BY(mutex) = 0;  // since the last reset, with the prefill
  long readIndex ZELK_GUARDED_BY(mutex) = 0;
  long writeIndex ZELK_GUARDED_BY(mutex) = 0;
  bool shutDown ZELK_GUARDED_BY(mutex) = false;

  std::condition_variable spaceAvailable;  // writers wait, readers notify
  std::condition_variable dataAvailable;   // readers wait, writers notify
};

}  // namespace zelk
