// libsoxr with a queue behind it: samples in, the exact number of samples out.
#pragma once

#include <soxr.h>

#include <memory>
#include <string>
#include <vector>

namespace zelk::blocks {

/// Interleaved doubles from one rate to another. Allocates until it has seen the longest burst.
/// [route-thread]
class RateFilter {
 public:
  /// Prepares for a stream. Empty, or what libsoxr says against it.
  std::string Begin(unsigned int from, unsigned int to, unsigned int channels,
                    unsigned long recipe) {
    inRate = from;
    outRate = to;
    width = channels;
    soxr_error_t error = nullptr;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(recipe, 0);
    filter.reset(soxr_create(from, to, channels, &error, &io, &quality, nullptr));
    Restart();
    return error ? error : filter ? "" : "no memory";
  }

  /// Forgets all samples.
  void Restart() {
    if (filter) soxr_clear(filter.get());
    queue.clear();
    begin = 0;
    fed = taken = 0;
  }

  long long Fed() const { return fed; }
  long long Taken() const { return taken; }

  /// How many samples come of `samples` at the input, rounded to nearest.
  long long Expected(long long samples) const {
    return samples / inRate * outRate + (samples % inRate * outRate + inRate / 2) / inRate;
  }

  /// How many can be taken now.
  std::size_t Ready() const { return (queue.size() - begin) / width; }

  /// False when libsoxr fails.
  bool Feed(const double* samples, std::size_t count) {
    queue.erase(queue.begin(), queue.begin() + static_cast<std::ptrdiff_t>(begin));
    begin = 0;
    fed += static_cast<long long>(count);
    std::size_t used = 0;
    std::size_t got = 0;
    for (std::size_t done = 0; done < count; done += used)
      if (!Process(samples + done * width, count - done, used, got) || used + got == 0)
        return false;
    return true;
  }

  /// Makes exactly what is still to come of all that was fed.
  bool Drain() {
    const std::size_t wanted = static_cast<std::size_t>(Expected(fed) - taken);
    std::size_t used = 0;
    for (std::size_t got = 1; Ready() < wanted && got > 0;)
      if (!Process(nullptr, 0, used, got)) return false;
    queue.resize(begin + wanted * width);
    return true;
  }

  /// `samples` are at most what is ready; valid until the next call.
  const double* Take(std::size_t samples) {
    const double* const from = queue.data() + begin;
    begin += samples * width;
    taken += static_cast<long long>(samples);
    return from;
  }

 private:
  static constexpr std::size_t ROOM = 1024;  // asked for at once

  struct Delete {
    void operator()(soxr* p) const { soxr_delete(p); }
  };

  bool Process(const double* from, std::size_t samples, std::size_t& used, std::size_t& got) {
    const std::size_t size = queue.size();
    queue.resize(size + ROOM * width);
    const soxr_error_t error =
        soxr_process(filter.get(), from, samples, &used, &queue[size], ROOM, &got);
    queue.resize(size + (error ? 0 : got) * width);
    return !error;
  }

  std::unique_ptr<soxr, Delete> filter;
  long long inRate = 1;
  long long outRate = 1;
  std::size_t width = 1;  // channels
  long long fed = 0;
  long long taken = 0;
  std::vector<double> queue;
  std::size_t begin = 0;  // of what was not taken yet
};

}  // namespace zelk::blocks
