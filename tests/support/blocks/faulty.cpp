// A block with the one fault that its word names, else with none: for the test of zelk-validate.
#include <fcntl.h>
#include <unistd.h>
#include <zelk/Block.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

class Faulty final : public zelk::Block {
 public:
  Faulty(bool first, bool last, std::string word) : Block(first, last), fault(std::move(word)) {}
  ~Faulty() override {
    if (Is("crash-in-destructor") && running) std::abort();
  }

  int OnInEpLinked(std::size_t index) override {
    const bool again = links++ > 0;
    return index > 0 || (again && Is("links-once")) ? -20 : 0;
  }
  int OnOutEpLinked(std::size_t index) override { return index == 0 ? 0 : -20; }

  int Start() override {
    if (Is("code") && !inEps[0].IsActive()) return -5;
    if (Is("starts-once") && starts++ > 0) return -20;
    if (Is("leak") && open("/dev/null", O_RDONLY) < 0) return -20;
    running = true;
    return 0;
  }
  int Stop() override {
    if (Is("hang")) pause();
    running = false;
    return 0;
  }
  int SetParameter(unsigned int, const std::vector<std::string>& words) override {
    if (Is("throw")) throw std::runtime_error("no such parameter");
    if (Is("crash-on-empty") && words.empty()) std::abort();
    return 0;
  }
  void Reset() override {
    if (Is("exit")) std::exit(0);
  }

  long ProcessFrame() override {
    zelk::FrameBuffer& in = *inEps[0].FB();
    zelk::FrameBuffer& out = *outEps[0].FB();
    if (Is("pending")) return FRAME_PENDING;
    if (!ActiveInEpsDataIsReady()) return FRAME_PENDING;
    if (!ActiveOutEpsDataIsEmpty() && !Is("overwrites")) return FRAME_PENDING;
    if (Is("fails-short") && in.validSamples == 1) return -7;
    const std::size_t frame = in.channels * BytesPerSample(in.format);
    if (!Is("overlong")) outEps[0].Resize(in.validSamples);
    if (out.data)
      std::memcpy(out.data, in.data, static_cast<std::size_t>(inEps[0].Available()) * frame);
    if (Is("overwrites")) out.data[0] = ++counter;
    out.validSamples = Is("overlong") ? in.samplesPerFrame + 1 : in.validSamples;
    if (Is("edits")) ++out.rate;
    in.validSamples = 0;
    return 0;
  }

 private:
  bool Is(const char* word) const { return fault == word; }

  const std::string fault;
  int links = 0, starts = 0;
  unsigned char counter = 0;
  bool running = false;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  if (args.size() != 1) return nullptr;
  return new Faulty(first, last, args[0]);
}
