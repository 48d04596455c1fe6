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

#include <utility>

namespace {

using namespace zelk;
using namespace zelk::blocks;

constexpr char LOG_TAG[] = "blocks/filesink";
constexpr std::size_t PIECE = 65536;  // bytes; shorter writes cost more than gathering them

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
    const bool last = end.InputIsLast();
    if (!Write(static_cast<std::size_t>(samples) * In().channels) || (last && !Flush()))
      return Refuse(__func__, path + " cannot be written: " + sf_strerror(file.get()));
    total += samples;
    written = !last;
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

  /// What libsndfile takes for the file's depth. Of 24 bits the upper ones of 32.
  SampleFormat Stored() const {
    const int depth = info.format & SF_FORMAT_SUBMASK;
    return depth == SF_FORMAT_FLOAT    ? FLOAT_NATIVE
           : depth == SF_FORMAT_PCM_16 ? S16_NATIVE
                                       : S32_NATIVE;
  }

  /// Takes the input's `count` numbers, and passes on what makes a piece. Rounds to the file's
  /// depth itself: libsndfile truncates.
  bool Write(std::size_t count) {
    const SampleFormat stored = Stored();
    const std::size_t bytes = count * BytesPerSample(stored);
    if (gathered == 0 && bytes >= PIECE && In().format == stored && stored != S32_NATIVE)
      return Put(In().data, count);
    if (pieces.size() < gathered + bytes) pieces.resize(gathered + bytes);
    unsigned char* const to = pieces.data() + gathered;
    if (stored != S32_NATIVE) {
      Convert(In().format, In().data, stored, to, count);
    } else {
      if (rounded.size() < 3 * count) rounded.resize(3 * count);
      Convert(In().format, In().data, S24_NATIVE, rounded.data(), count);
      Convert(S24_NATIVE, rounded.data(), stored, to, count);
    }
    gathered += bytes;
    return gathered < PIECE || Flush();
  }

  bool Flush() {
    const std::size_t bytes = std::exchange(gathered, 0);
    return Put(pieces.data(), bytes / BytesPerSample(Stored()));
  }

  bool Put(const unsigned char* data, std::size_t count) {
    const auto items = static_cast<sf_count_t>(count);
    SNDFILE* const f = file.get();
    switch (Stored()) {
      case FLOAT_NATIVE:
        return sf_write_float(f, reinterpret_cast<const float*>(data), items) == items;
      case S16_NATIVE:
        return sf_write_short(f, reinterpret_cast<const short*>(data), items) == items;
      default:
        return sf_write_int(f, reinterpret_cast<const int*>(data), items) == items;
    }
  }

  void Close() {
    if (!file) return;
    if (!Flush()) Refuse(__func__, path + " cannot be written: " + sf_strerror(file.get()));
    if (const int error = sf_close(file.release()))
      Refuse(__func__, path + " cannot be completed: " + sf_error_number(error));
  }

  const std::string path;
  const int container;
  const int subtype;  // 0: by the link
  SF_INFO info = {};
  SoundFile file;
  long long total = 0;                // samples in it
  bool written = false;               // and the input had not ended: the next start goes on
  std::vector<unsigned char> pieces;  // what the file has not got yet, and room for more
  std::size_t gathered = 0;           // bytes of it
  std::vector<unsigned char> rounded;
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
