// A block of one's own: turns float samples upside down.
#include <zelk/Block.h>

#include <vector>

class Invert : public zelk::Block {
 public:
  using Block::Block;

  long ProcessFrame() override {
    zelk::FrameBuffer& in = *inEps[0].FB();
    const zelk::FrameBuffer& out = *outEps[0].FB();
    if (in.validSamples == 0 || !ActiveOutEpsDataIsEmpty()) return FRAME_DONE_WITHOUT_OUTPUT;
    if (in.format != zelk::FLOAT_LE || out.format != in.format || out.channels != in.channels)
      return -20;
    auto* samples = reinterpret_cast<float*>(in.data);
    for (long i = 0; i < in.validSamples * in.channels; ++i)
      samples[i] = -samples[i];
    outEps[0].Resize(in.validSamples, samples, in.timestamp);
    in.validSamples = 0;  // taken
    return 0;
  }
};

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>&) {
  return new Invert(first, last);
}
