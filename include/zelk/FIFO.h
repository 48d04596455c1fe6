// Carries samples between the host and the blocks of a route.
#pragma once

#include <zelk/Export.h>

#include <string>

namespace zelk {

/// The side that samples are taken from.
class ZELK_EXPORT DataProducer {
 public:
  virtual ~DataProducer();

  /// Delivers exactly `count` elements into `dst`. With `block`, waits for them; without, fills
  /// what is missing with zeros. `timestamp`, unless null, receives the time of the first element
  /// in microseconds, -1 for one that never got a time; it stays untouched when nothing was held or
  /// the FIFO keeps no times. A negative `count` is 0. Returns 0, or -20 once the FIFO is shut
  /// down. [any-thread, one reader at a time]
  virtual int Produce(void* dst, long count, bool block, long long* timestamp) = 0;

 protected:
  bool producerEnabled = true;  ///< for implementations; the library has no use for it
  long long producerTag = 0;    ///< likewise
};

/// The side that samples are handed to.
class ZELK_EXPORT DataConsumer {
 public:
  virtual ~DataConsumer();

  /// Takes `count` elements from `src`, the first of which has the time `timestamp` in
  /// microseconds. With `block`, waits for space; keep such a transfer no larger than the capacity.
  /// Without, drops the oldest elements on overflow and keeps only the newest half of the capacity.
  /// A negative `count` is 0. Returns 0, or -20 once the FIFO is shut down. [any-thread, one writer
  /// at a time]
  virtual int Consume(const void* src, long count, bool block, long long timestamp) = 0;

 protected:
  bool consumerEnabled = true;  ///< for implementations; the library has no use for it
  long long consumerTag = 0;    ///< likewise
};

/// A ring of equal-sized elements with one reading and one writing side, created by
/// `Zelk::NewFIFO`. Neither side allocates; both take the FIFO's mutex for the time of a copy.
class ZELK_EXPORT FIFO : public DataProducer, public DataConsumer {
 public:
  ~FIFO() override;

  /// Ends the FIFO for good: waiting calls (one per side) wake up, and every call from now on
  /// returns -20. Do this, and let both sides return, before `Zelk::DeleteFIFO`. [any-thread]
  virtual void Shutdown() = 0;

  /// "fifo_" and a number, as given by `Zelk::NewFIFO`; constant from then on. [any-thread]
  const std::string& Name() const noexcept { return name; }

 protected:
  friend class ZelkImpl;

  std::string name;  ///< set by `Zelk::NewFIFO()`
};

}  // namespace zelk
