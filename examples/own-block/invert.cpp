// A block of one's own: turns float samples upside down.
#include <zelk/Block.h>

#include <vector>

class Invert : public zelk::Block {
 public:
  using Block::Block;

  // One port on each side.
  int OnInEpLinked(std::size_t index) override { return index == 0 ? 0 : -20; }
  int OnOutEpLinked(std::size_t index) override { return index == 0 ? 0 : -20; }

  long ProcessFrame() override {
    if (!ActiveInEpsDataIsReady() || !ActiveOutEpsDataIsEmpty()) return FRAME_PENDING;
    zelk::FrameBuffer& in = *inEps[0].FB();
    const zelk::FrameBuffer& out = *outEps[0].FB();
    if (in.format != zelk::FLOAT_LE || out.format != in.format || out.channels != in.channels)
      return -20;
    auto* samples = reinterpret_cast<float*>(in.data);
    for (long i = 0; i < inEps[0].Available() * in.channels; ++i)
      samples[i] = -samples[i];
    outEps[0].Resize(inEps[0].Available(), samples, in.timestamp);
    in.validSamples = 0;  // taken
    return 0;
  }
};

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>&) {
  return new Invert(first, last);
}
