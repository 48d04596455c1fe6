// filesink PATH [wav16|wav24|wavf|flac]: a sink that writes a sound file.
//
// Without a format word the extension decides: ".flac" is FLAC, anything else WAV with 16 bits.
// FLAC has 16 bits for links of up to 16, else 24. The file is complete whenever the route is
// stopped. After the end of the input the next start begins the file anew; after a stop in between
// it goes on with the same file, which FLAC does not allow. Parameter 1 is how much was written.
#include "common/Arguments.h"
#include "common/Log.h"
#include "common/Samples.h"
#include "common/SoundFile.h"
#include "common/StockBlock.h"

namespace {

using namespace zelk;
using namespace zelk::blocks;

constexpr char LOG_TAG[] = "blocks/filesink";

class FileSink final : public StockBlock {
 public:
  FileSink(bool first, bool last, std::string filePath, int fileFormat)
      : StockBlock(LOG_TAG, first, last, 1, 0),
        path(std::move(filePath)),
        container(fileFormat & SF_FORMAT_TYPEMASK),
        subtype(fileFormat & SF_FORMAT_SUBMASK) {
    parameters.Add({1, "duration", "s", 0, 1e12, 0, [this] { return Duration(); }, {}});
  }

  // The header is written by libsndfile when the file closes.
  ~FileSink() override { Close(); }

  int Start() override {
    const int ret = inEps[0].IsActive() ? Open() : 0;  // else with the first frame
    return ret < 0 ? ret : StockBlock::Start();
  }

  long ProcessFrame() override {
    if (auto answer = end.Answer()) return *answer;
    if (!file && Open() < 0) return -20;
    const long samples = Available();
    if (Write(samples) != samples)
      return Refuse(__func__, path + " cannot be written: " + sf_strerror(file.get()));
    total += samples;
    written = !end.InputIsLast();
    end.Take();
    return 0;
  }

  int Stop() override {
    Close();
    return 0;
  }

 protected:
  int CheckInput(std::size_t) override {
    if (file && (In().rate != static_cast<unsigned int>(info.samplerate) ||
                 In().channels != static_cast<unsigned int>(info.channels)))
      return Refuse("OnInEpLinked", path + " is being written with another rate or channels than " +
                                        Describe(In()));
    return 0;
  }

 private:
  int Open() {
    const bool resume = written;
    if (!resume) total = 0;
    if (resume && container == SF_FORMAT_FLAC)
      return Refuse(__func__, path + " is complete, and FLAC cannot be continued: use a new block");
    info.samplerate = static_cast<int>(In().rate);
    info.channels = static_cast<int>(In().channels);
    info.format = container | (subtype ? subtype : Depth(In().format));
    file.reset(sf_open(path.c_str(), resume ? SFM_RDWR : SFM_WRITE, &info));
    if (!file) return Refuse(__func__, path + " cannot be opened: " + sf_strerror(nullptr));
    sf_command(file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    if (resume && (info.samplerate != static_cast<int>(In().rate) ||
                   info.channels != static_cast<int>(In().channels) ||
                   sf_seek(file.get(), 0, SEEK_END) < 0)) {
      file.reset();
      return Refuse(__func__, path + " cannot be continued with " + Describe(In()));
    }
    return 0;
  }

  double Duration() const {
    return info.samplerate > 0 ? static_cast<double>(total) / info.samplerate : 0;
  }

  static int Depth(SampleFormat format) {
    return BytesPerSample(format) <= 2 ? SF_FORMAT_PCM_16 : SF_FORMAT_PCM_24;
  }

  /// How many samples were written. Rounds to the file's depth itself: libsndfile truncates.
  long Write(long samples) {
    const std::size_t count = static_cast<std::size_t>(samples) * In().channels;
    const int depth = info.format & SF_FORMAT_SUBMASK;
    if (depth == SF_FORMAT_FLOAT)
      return static_cast<long>(sf_writef_float(
          file.get(), reinterpret_cast<const float*>(As(FLOAT_NATIVE, count)), samples));
    if (depth == SF_FORMAT_PCM_16)
      return static_cast<long>(sf_writef_short(
          file.get(), reinterpret_cast<const short*>(As(S16_NATIVE, count)), samples));
    const unsigned char* const rounded = As(S24_NATIVE, count);
    if (wide.size() < count) wide.resize(count);
    Convert(S24_NATIVE, rounded, S32_NATIVE, reinterpret_cast<unsigned char*>(wide.data()), count);
    return static_cast<long>(sf_writef_int(file.get(), wide.data(), samples));
  }

  /// The input's samples in `format`; in place where they have it already.
  const unsigned char* As(SampleFormat format, std::size_t count) {
    if (In().format == format) return In().data;
    const std::size_t bytes = count * BytesPerSample(format);
    if (scratch.size() < bytes) scratch.resize(bytes);
    Convert(In().format, In().data, format, scratch.data(), count);
    return scratch.data();
  }

  void Close() {
    if (!file) return;
    if (const int error = sf_close(file.release()))
      Refuse(__func__, path + " cannot be completed: " + sf_error_number(error));
  }

  const std::string path;
  const int container;
  const int subtype;  // 0: by the link
  SF_INFO info = {};
  SoundFile file;
  long long total = 0;   // samples in it
  bool written = false;  // and the input had not ended: the next start goes on
  std::vector<unsigned char> scratch;
  std::vector<int> wide;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  const bool fits = args.size() == 1 || args.size() == 2;
  const auto path = fits ? PathFromWord(args[0]) : std::nullopt;
  const int format = path ? SoundFileFormat(*path, args.size() > 1 ? args[1] : "") : 0;
  if (!format) {
    LOG_E("filesink takes PATH or a file: URL, then wav16, wav24, wavf or flac; got %zu words%s%s",
          args.size(), args.empty() ? "" : ", last ", args.empty() ? "" : args.back().c_str());
    return nullptr;
  }
  return new FileSink(first, last, *path, format);
}
