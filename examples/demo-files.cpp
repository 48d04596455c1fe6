// What scripts/demo wants to know about sound files:
//   demo-files describe FILE...             per file its rate, channels, samples, 16 or 24 bits
//   demo-files compare DB IN OUT [IN OUT]...  whether each OUT is its IN, DB louder
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

struct SoundFile {
  explicit SoundFile(const char* path) : handle(sf_open(path, SFM_READ, &info)) {}
  SoundFile(const SoundFile&) = delete;
  SoundFile& operator=(const SoundFile&) = delete;
  ~SoundFile() { sf_close(handle); }

  bool Is16() const { return (info.format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_16; }
  double Seconds() const { return static_cast<double>(info.frames) / info.samplerate; }

  SF_INFO info{};
  SNDFILE* handle;
};

bool Describe(const char* path) {
  const SoundFile file(path);
  if (!file.handle || file.info.frames == 0) {
    std::fprintf(stderr, "%s: %s\n", path, file.handle ? "empty" : sf_strerror(nullptr));
    return false;
  }
  std::printf("%d %d %lld %d\n", file.info.samplerate, file.info.channels,
              static_cast<long long>(file.info.frames), file.Is16() ? 16 : 24);
  return true;
}

/// The first number of OUT that is not IN's, gained, clipped and rounded to OUT's bits; -1 when
/// there is none. `peak` becomes the greatest.
sf_count_t FirstWrong(const SoundFile& before, const SoundFile& after, double gain, float& peak) {
  const double step = after.Is16() ? 1.0 / 32768 : 1.0 / 8388608;
  std::vector<float> x(4096), y(x.size());
  // Whole samples of all channels: the library reads nothing else.
  const auto most = static_cast<sf_count_t>(x.size()) / before.info.channels * before.info.channels;
  sf_count_t at = 0;
  for (sf_count_t n; (n = sf_read_float(before.handle, x.data(), most)) > 0; at += n) {
    if (sf_read_float(after.handle, y.data(), n) != n) return at;
    for (sf_count_t i = 0; i < n; ++i) {
      const auto k = static_cast<std::size_t>(i);
      peak = std::max(peak, std::abs(y[k]));
      const double right = std::clamp(x[k] * gain, -1.0, 1 - step);
      // The second term is a float's own rounding.
      if (!(std::abs(y[k] - right) <= step / 2 + 1e-6)) return at + i;
    }
  }
  return at == before.info.frames * before.info.channels ? -1 : at;
}

bool Compare(double db, const char* in, const char* out) {
  const SoundFile before(in), after(out);
  if (!before.handle || !after.handle || after.info.frames != before.info.frames ||
      after.info.channels != before.info.channels ||
      after.info.samplerate != before.info.samplerate) {
    std::printf("  %s: WRONG, not as long or wide as %s\n", out, in);
    return false;
  }
  float peak = 0;
  const sf_count_t wrong = FirstWrong(before, after, std::pow(10, db / 20), peak);
  std::printf("  %-34s %8.2f s  peak %6.1f dBFS  ", out, after.Seconds(),
              20 * std::log10(std::max<double>(peak, 1e-9)));
  if (wrong < 0)
    std::printf("every sample right\n");
  else
    std::printf("WRONG at number %lld\n", static_cast<long long>(wrong));
  return wrong < 0;
}

}  // namespace

int main(int argc, char** argv) {
  bool good = true;
  if (argc > 2 && std::strcmp(argv[1], "describe") == 0) {
    for (int i = 2; i < argc; ++i)
      good = Describe(argv[i]) && good;
  } else if (argc > 4 && argc % 2 == 1 && std::strcmp(argv[1], "compare") == 0) {
    for (int i = 3; i < argc; i += 2)
      good = Compare(std::atof(argv[2]), argv[i], argv[i + 1]) && good;
  } else {
    std::fputs("usage: demo-files describe FILE... | compare DB IN OUT [IN OUT]...\n", stderr);
    return 2;
  }
  return good ? 0 : 1;
}
