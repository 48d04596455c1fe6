// Turns sound files down, one route each, all at once, and checks every sample that came out:
// demo-host OUT-FOLDER FILE...
#include <sndfile.h>
#include <unistd.h>
#include <vantrel.h>
#include <zelk/Zelk.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr double GAIN_DB = -6;
constexpr std::size_t MAX_ROUTES = 26;

struct Frames {
  std::atomic<unsigned long long> ok{0};
  std::atomic<unsigned long long> errors{0};
};
std::array<Frames, MAX_ROUTES> frames;  // of RouteA, RouteB, ...

struct SoundFile {
  explicit SoundFile(const std::string& path) : handle(sf_open(path.c_str(), SFM_READ, &info)) {}
  SoundFile(const SoundFile&) = delete;
  SoundFile& operator=(const SoundFile&) = delete;
  ~SoundFile() { sf_close(handle); }

  SF_INFO info{};
  SNDFILE* handle;
};

/// One file on its way through one route.
class Voice : public zelk::Route::Callbacks {
 public:
  Voice(std::size_t number, const std::string& in, const std::string& out)
      : number(number), in(in), out(out) {}

  bool Start();
  bool Check();

  void OnStopped(zelk::Route::StopReason why) override {
    reason = why;
    endTime = std::chrono::steady_clock::now();
    ended = true;
  }

  double Seconds() const { return static_cast<double>(samples) / rate; }
  /// How far the route has come, 0 to 1.
  double Progress() const {
    return ended ? 1
                 : std::min(1.0, static_cast<double>(frames[number].ok) * FrameSize() / samples);
  }

  zelk::Route* route = nullptr;
  const std::size_t number;
  const std::string in, out;
  float peak = 0;
  std::atomic<bool> ended{false};
  std::chrono::steady_clock::time_point endTime;  // once ended

 private:
  long FrameSize() const { return std::max(1, rate / 100); }

  int rate = 1;
  sf_count_t samples = 1;  // per channel
  double step = 0;         // of the written file's numbers
  zelk::Route::StopReason reason = zelk::Route::FAILURE;
};

bool Voice::Start() {
  const SoundFile file(in);
  if (!file.handle || file.info.frames == 0) {
    std::fprintf(stderr, "%s: %s\n", in.c_str(), file.handle ? "empty" : sf_strerror(nullptr));
    return false;
  }
  if (std::filesystem::exists(out) && std::filesystem::equivalent(in, out)) {
    std::fprintf(stderr, "%s: would be overwritten while it is read\n", in.c_str());
    return false;
  }
  rate = file.info.samplerate;
  samples = file.info.frames;
  const bool is16 = (file.info.format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_16;
  step = is16 ? 1.0 / 32768 : 1.0 / 8388608;

  const std::string name = std::string("Route") + static_cast<char>('A' + number);
  route = zelk::Zelk::Instance()->NewRoute(name.c_str(), this);
  if (!route) return false;
  zelk::Block* source = route->NewBlock("filesrc.so", true, false, {in});
  zelk::Block* gain = route->NewBlock("gain.so", false, false, {std::to_string(GAIN_DB)});
  zelk::Block* sink = route->NewBlock("filesink.so", false, true, {out, is16 ? "wav16" : "wav24"});
  const auto link = [&](zelk::Block* from, zelk::Block* to) {
    return route->NewLink(static_cast<unsigned>(rate), zelk::FLOAT_LE,
                          static_cast<unsigned>(file.info.channels), FrameSize(), from, 0, to, 0);
  };
  return link(source, gain) && link(gain, sink) && route->Start() == 0;
}

/// Whether the route ended well and wrote the input's samples, gained, and nothing else.
bool Voice::Check() {
  if (reason != zelk::Route::END_OF_FILE) {
    std::fprintf(stderr, "%s: the route failed\n", in.c_str());
    return false;
  }
  const SoundFile before(in);
  const SoundFile after(out);
  if (!after.handle || after.info.frames != samples ||
      after.info.channels != before.info.channels) {
    std::fprintf(stderr, "%s: not as long or wide as its input\n", out.c_str());
    return false;
  }
  const double gain = std::pow(10, GAIN_DB / 20);
  std::vector<float> x(4096), y(x.size());
  const auto whole = static_cast<sf_count_t>(x.size()) / after.info.channels;
  for (sf_count_t at = 0, n; (n = sf_readf_float(before.handle, x.data(), whole)) > 0; at += n) {
    if (sf_readf_float(after.handle, y.data(), n) != n) return false;
    for (std::size_t i = 0; i < static_cast<std::size_t>(n * after.info.channels); ++i) {
      peak = std::max(peak, std::abs(y[i]));
      const double right = std::clamp(x[i] * gain, -1.0, 1 - step);
      if (std::abs(y[i] - right) <= step / 2 + 1e-6) continue;
      std::fprintf(stderr, "%s: wrong after sample %lld: %g became %g\n", out.c_str(),
                   static_cast<long long>(at), static_cast<double>(x[i]),
                   static_cast<double>(y[i]));
      return false;
    }
  }
  return true;
}

double Decibels(float level) {
  return 20 * std::log10(std::max(level, 1e-9F));
}

/// Shows how far the routes are until all have ended.
void Wait(const std::vector<std::unique_ptr<Voice>>& voices) {
  const bool terminal = isatty(STDOUT_FILENO) != 0;
  std::size_t shown = voices.size() + 1;
  for (std::size_t ended = 0; ended < voices.size();) {
    double progress = 0;
    ended = 0;
    for (const auto& voice : voices) {
      progress += voice->Progress();
      ended += voice->ended ? 1 : 0;
    }
    if (terminal || ended != shown)
      std::printf("%s%3.0f %%, %zu of %zu routes at their end%s", terminal ? "\r" : "",
                  100 * progress / static_cast<double>(voices.size()), ended, voices.size(),
                  terminal && ended < voices.size() ? "" : "\n");
    std::fflush(stdout);
    shown = ended;
    if (ended < voices.size()) usleep(20'000);
  }
}

/// Prints what a person wants to know; whether everything is as it should be.
bool Report(const std::vector<std::unique_ptr<Voice>>& voices,
            std::chrono::steady_clock::time_point start) {
  std::chrono::duration<double> elapsed{0};
  double seconds = 0;
  float peak = 0;
  unsigned long long ok = 0, errors = 0;
  std::size_t good = 0;
  for (const auto& voice : voices) {
    const bool exact = voice->Check();
    const Frames& count = frames[voice->number];
    std::printf("%-32s %7.2f s  %6llu frames OK, %llu errors  peak %6.1f dBFS  %s\n",
                voice->out.c_str(), voice->Seconds(), count.ok.load(), count.errors.load(),
                Decibels(voice->peak), exact ? "every sample right" : "WRONG");
    seconds += voice->Seconds();
    elapsed = std::max(elapsed, std::chrono::duration<double>(voice->endTime - start));
    peak = std::max(peak, voice->peak);
    ok += count.ok;
    errors += count.errors;
    good += exact ? 1 : 0;
  }
  std::printf(
      "\n%zu files written, %.2f s of audio in %.3f s: %.0f times real time\n"
      "%llu frames OK, %llu error frames, peak level %.1f dBFS\n"
      "%zu of %zu files hold their input's samples at %g dB, to the last bit's rounding\n",
      voices.size(), seconds, elapsed.count(), seconds / elapsed.count(), ok, errors,
      Decibels(peak), good, voices.size(), GAIN_DB);
  return good == voices.size() && errors == 0;
}

bool Run(const std::filesystem::path& folder, const std::vector<std::string>& files) {
  std::vector<std::unique_ptr<Voice>> voices;
  std::set<std::string> taken;
  for (const auto& file : files) {
    const std::string plain = (folder / std::filesystem::path(file).stem()).string();
    std::string out = plain + ".wav";
    for (int i = 2; !taken.insert(out).second; ++i)
      out = plain + "-" + std::to_string(i) + ".wav";
    voices.push_back(std::make_unique<Voice>(voices.size(), file, out));
  }
  const auto start = std::chrono::steady_clock::now();
  const bool started =
      std::all_of(voices.begin(), voices.end(), [](auto& voice) { return voice->Start(); });
  if (started) Wait(voices);
  for (const auto& voice : voices)
    zelk::Zelk::Instance()->DeleteRoute(voice->route);
  return started && Report(voices, start);
}

}  // namespace

/// In front of the logging library's: routes report their frame counts in their records, and a
/// person wants to see errors only.
extern "C" void vantrel_print(int, int, int, char level, const char*, int, const char*, const void*,
                              const char* format, ...) {
  const bool summary = std::strstr(format, "processed OK") != nullptr;
  if (!summary && level != 'E') return;
  char text[512];
  va_list words;
  va_start(words, format);
  std::vsnprintf(text, sizeof text, format, words);
  va_end(words);
  char route = 0;
  unsigned long long ok = 0, errors = 0;
  const char* comma = std::strchr(text, ',');
  if (!summary)
    std::fprintf(stderr, "%s\n", text);
  else if (comma && std::sscanf(text, "Route%c: %llu", &route, &ok) == 2 &&
           std::sscanf(comma, ", %llu", &errors) == 1 && route >= 'A' && route <= 'Z') {
    frames[static_cast<std::size_t>(route - 'A')].ok = ok;
    frames[static_cast<std::size_t>(route - 'A')].errors = errors;
  }
}

int main(int argc, char** argv) {
  if (argc < 3 || argc > static_cast<int>(MAX_ROUTES) + 2)
    return std::fputs("usage: demo-host OUT-FOLDER FILE... (up to 26)\n", stderr), 2;
  std::filesystem::create_directories(argv[1]);
  return Run(argv[1], {argv + 2, argv + argc}) ? 0 : 1;
}
