// filesrc PATH: a source that reads a sound file: WAV, FLAC, OGG, MP3 and what else libsndfile
// knows.
//
// Its link must have the file's rate and channels. A stopped route goes on where it was, or begins
// anew after the end. Parameter 1 repeats the file, 2 is the position, 3 the duration.
#include "common/Arguments.h"
#include "common/Crossfade.h"
#include "common/Log.h"
#include "common/SampleClock.h"
#include "common/Samples.h"
#include "common/SoundFile.h"
#include "common/StockBlock.h"

#include <cmath>

namespace {

using namespace zelk;
using namespace zelk::blocks;

constexpr char LOG_TAG[] = "blocks/filesrc";

class FileSource final : public StockBlock {
 public:
  FileSource(bool first, bool last, std::string filePath, SoundFile opened, const SF_INFO& about)
      : StockBlock(LOG_TAG, first, last, 0, 1),
        path(std::move(filePath)),
        file(std::move(opened)),
        info(about) {
    clock.Start(0);
    const double duration = static_cast<double>(info.frames) / info.samplerate;
    parameters.Add({1, "loop", "-", 0, 1, 0, [this] { return loop ? 1.0 : 0.0; },
                    [this](double value) { return loop = value >= 0.5, 0; }});
    parameters.Add({2, "position", "s", 0, duration, 0,
                    [this] { return static_cast<double>(at) / info.samplerate; },
                    [this](double value) { return GoTo(std::llround(value * info.samplerate)); }});
    parameters.Add({3, "duration", "s", 0, duration, duration, [=] { return duration; }, {}});
  }

  int Start() override {
    if (atEnd && GoTo(0) < 0)
      return Refuse(__func__, path + " cannot be read again from its beginning");
    return StockBlock::Start();
  }

  long ProcessFrame() override {
    if (auto answer = end.SourceAnswer()) return *answer;
    const long wanted = Room();
    const long samples = Fill(wanted);
    if (sf_error(file.get()) != SF_ERR_NO_ERROR)
      return Refuse(__func__, path + ": " + sf_strerror(file.get()));
    fade.Blend(Out().format, Out().data, samples);
    const long long time = clock.Now(Out().rate);
    clock.Advance(samples);
    // A file's header may promise more than there is.
    atEnd = samples < wanted || (at >= info.frames && !loop);
    if (clock.Samples() == 0)
      LOG_W("%s: %s: %s holds no samples", routeName.c_str(), name.c_str(), path.c_str());
    return end.Send(samples, time, atEnd);
  }

 protected:
  int CheckOutput(std::size_t) override {
    if (Out().rate == static_cast<unsigned int>(info.samplerate) &&
        Out().channels == static_cast<unsigned int>(info.channels))
      return 0;
    return Refuse("OnOutEpLinked", path + " is " + std::to_string(info.samplerate) + " Hz with " +
                                       std::to_string(info.channels) + " channels, the link " +
                                       Describe(Out()));
  }

 private:
  /// Fills the output with up to `wanted` samples; how many. A file that repeats has no end.
  long Fill(long wanted) {
    const std::size_t unit = Out().channels * BytesPerSample(Out().format);
    long samples = 0;
    for (bool fresh = false; samples < wanted;) {
      const long got =
          Read(Out().data + static_cast<std::size_t>(samples) * unit, wanted - samples);
      samples += got;
      at += got;
      if (samples == wanted || !loop || (fresh && got == 0)) break;
      if ((at = sf_seek(file.get(), 0, SEEK_SET)) != 0) break;
      fresh = true;
    }
    return samples;
  }

  /// Goes on from sample `target`; fades over to it while samples are flowing.
  int GoTo(long long target) {
    std::vector<double> old;
    if (clock.Samples() > 0 && !atEnd) {
      old.resize(static_cast<std::size_t>(std::llround(RAMP_SECONDS * info.samplerate)) *
                 static_cast<std::size_t>(info.channels));
      // Behind the file's end there is the silence that the rest of `old` holds.
      sf_read_double(file.get(), old.data(), static_cast<sf_count_t>(old.size()));
    }
    if (sf_seek(file.get(), target, SEEK_SET) != target) return -20;
    if (atEnd) clock.Start(0);
    atEnd = false;
    at = target;
    fade.Begin(std::move(old), static_cast<unsigned int>(info.channels));
    return 0;
  }

  /// Reads up to `wanted` samples; how many. Straight where libsndfile can deliver the link's
  /// format without rounding, else through double, which holds every sample exactly.
  long Read(unsigned char* data, long wanted) {
    SNDFILE* const f = file.get();
    if (Out().format == FLOAT_NATIVE)
      return static_cast<long>(sf_readf_float(f, reinterpret_cast<float*>(data), wanted));
    if (Out().format == S32_NATIVE && HoldsIntegers(info))
      return static_cast<long>(sf_readf_int(f, reinterpret_cast<int*>(data), wanted));
    if (Out().format == S16_NATIVE && (info.format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_16)
      return static_cast<long>(sf_readf_short(f, reinterpret_cast<short*>(data), wanted));
    scratch.resize(static_cast<std::size_t>(wanted) * Out().channels);
    const auto got = sf_readf_double(f, scratch.data(), wanted);
    Encode(Out().format, scratch.data(), data, static_cast<std::size_t>(got) * Out().channels);
    return static_cast<long>(got);
  }

  const std::string path;
  const SoundFile file;
  const SF_INFO info;
  SampleClock clock;
  long long at = 0;  // of the file
  bool loop = false;
  bool atEnd = false;
  Crossfade fade;
  std::vector<double> scratch;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  const auto path = args.size() == 1 ? PathFromWord(args[0]) : std::nullopt;
  if (!path) {
    LOG_E("filesrc takes one PATH or file: URL, got %zu words%s%s", args.size(),
          args.empty() ? "" : ", first ", args.empty() ? "" : args[0].c_str());
    return nullptr;
  }
  SF_INFO info = {};
  SoundFile file(sf_open(path->c_str(), SFM_READ, &info));
  if (!file) {
    LOG_E("%s cannot be read: %s", path->c_str(), sf_strerror(nullptr));
    return nullptr;
  }
  return new FileSource(first, last, *path, std::move(file), info);
}
